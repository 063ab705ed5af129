#pragma once

#include <QBoxLayout>
#include <QPropertyAnimation>
#include <QWidget>

namespace kestrin {

/// A window without a frame, above all others, that never takes the focus.
inline constexpr Qt::WindowFlags floatingFlags =
    Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus;

/// A small window without a frame, above all others, that never takes the focus: what must be seen
/// whichever application is in front. It holds one card, stands at the top right of the screen and
/// fades when it goes.
class FloatingWindow : public QWidget {
 public:
  explicit FloatingWindow(const char* title);

 protected:
  /// Of the card.
  QVBoxLayout* column() const { return column_; }
  /// As high as what it holds now, at the top right, `margin` from the edges.
  void placeTopRight(int margin);
  void appear();
  void fadeOut();

 private:
  QVBoxLayout* column_;
  QPropertyAnimation fading_;
};

}  // namespace kestrin
