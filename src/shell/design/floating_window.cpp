#include "shell/design/floating_window.h"

#include <QGuiApplication>
#include <QScreen>

#include "shell/design/controls.h"

namespace kestrin {
namespace {

constexpr int fadeMs = 200;

}  // namespace

FloatingWindow::FloatingWindow(const char* title) : fading_(this, "windowOpacity") {
  setWindowFlags(floatingFlags);
  setAttribute(Qt::WA_ShowWithoutActivating);
  setWindowTitle(title);
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  auto* card = new Card;
  outer->addWidget(card);
  column_ = card->column();
  fading_.setDuration(fadeMs);
  fading_.setEndValue(0.0);
  connect(&fading_, &QPropertyAnimation::finished, this, [this] { hide(); });
}

void FloatingWindow::placeTopRight(int margin) {
  // What breaks its lines is as high as the width makes it.
  const int height = layout()->hasHeightForWidth() ? layout()->totalHeightForWidth(width())
                                                   : layout()->totalSizeHint().height();
  resize(width(), height);
  const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
  move(area.right() - width() - margin, area.top() + margin);
}

void FloatingWindow::appear() {
  fading_.stop();
  setWindowOpacity(1);
  show();
}

void FloatingWindow::fadeOut() {
  if (!isVisible() || fading_.state() == QAbstractAnimation::Running) return;
  fading_.setStartValue(windowOpacity());
  fading_.start();
}

}  // namespace kestrin
