#pragma once

#include <QLabel>
#include <QTimer>

#include "app/service_watch.h"
#include "shell/design/controls.h"

namespace kestrin {

/// Above a page: which of the services that it reads from do not answer, and a way to ask again.
/// Asks by itself when a page comes on screen and from time to time while it stays there.
class ServiceStrip final : public QFrame {
 public:
  explicit ServiceStrip(ServiceWatch& watch);
  ~ServiceStrip() override;

  /// What the page on screen reads from.
  void showFor(const ServiceWatch::Services& needed);

  /// All that the page on screen needs answers again.
  std::function<void()> onBack;
  /// Nothing is asked before the services have had their time to start.
  std::function<bool()> mayAsk;

 private:
  void ask();
  void refresh();

  ServiceWatch& watch_;
  ServiceWatch::Services needed_;
  QLabel* text_;
  QPushButton* again_;
  QTimer timer_;
  bool wasDown_ = false, asked_ = false;
};

}  // namespace kestrin
