#pragma once

#include <QWidget>

namespace kestrin {

/// A page of the main window. It draws what its view holds and forwards what the user does.
class Page : public QWidget {
 public:
  using QWidget::QWidget;
  /// Shows what the view holds now. Called after any change while the page is on screen, and when
  /// it comes on screen; must be cheap when nothing of this page has changed.
  virtual void refresh() = 0;
  /// Fetches anew what it shows: a service answers that did not. Nothing where nothing is fetched.
  virtual void reload() {}
  /// Whether it would take too long to make it again after the window was closed.
  virtual bool isKept() const { return false; }
};

}  // namespace kestrin
