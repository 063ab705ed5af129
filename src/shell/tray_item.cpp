#include "shell/tray_item.h"

#include <QPainter>
#include <QPixmap>

namespace kestrin {

TrayItem::TrayItem(Application& application, std::function<void()> quit)
    : application_(application),
      statusAction_(menu_.addAction(QString())),
      sendAgainAction_(nullptr),
      elevateAction_(nullptr),
      setupAction_(nullptr),
      startAnywayAction_(nullptr),
      icon_(drawIcon(false, false)) {
  statusAction_->setEnabled(false);
  menu_.addAction("Hold key: " + QString::fromStdString(application.holdKeyName()))
      ->setEnabled(false);
  menu_.addSeparator();
  sendAgainAction_ =
      menu_.addAction("Send again", [&application] { application.obey(ControlCommand::retry); });
  elevateAction_ = menu_.addAction("Allow key presses and scripts", [&application] {
    const bool elevated = application.actionTier() == SafetyTier::elevated;
    application.obey(elevated ? ControlCommand::lower : ControlCommand::elevate);
  });
  elevateAction_->setCheckable(true);
  menu_.addAction("Show Window", [&application] { application.applicationShouldHandleReopen(); });
  setupAction_ =
      menu_.addAction("Setup && Permissions...", [&application] { application.tellSetup(); });
  startAnywayAction_ =
      menu_.addAction("Start anyway", [&application] { application.setup().accept(); });
  menu_.addAction("Quit", std::move(quit));
  icon_.setContextMenu(&menu_);
  refresh();
  icon_.show();
}

void TrayItem::refresh() {
  const auto status = QString::fromStdString(application_.mainWindow().status().text);
  statusAction_->setText(status);
  sendAgainAction_->setEnabled(application_.hasUndelivered());
  const bool elevated = application_.actionTier() == SafetyTier::elevated;
  elevateAction_->setChecked(elevated);
  startAnywayAction_->setVisible(application_.setup().isShown());
  const bool recording = application_.delegate().statusIcon() == AppDelegate::StatusIcon::recording;
  const bool preRoll = application_.isPreRollActive();
  if (recording != shownRecording_ || preRoll != shownPreRoll_) {
    shownRecording_ = recording;
    shownPreRoll_ = preRoll;
    icon_.setIcon(drawIcon(recording, preRoll));
  }
  icon_.setToolTip(recording
                       ? "Recording"
                       : "Kestrin\n" + status + (preRoll ? "\nThe microphone stays open" : "") +
                             (elevated ? "\nActions may press keys and run scripts" : ""));
}

/// A microphone; in a red disc while recording, with an orange dot while the microphone stays open
/// between recordings.
QIcon TrayItem::drawIcon(bool recording, bool preRoll) {
  QPixmap pixmap(64, 64);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  if (recording) {
    painter.setBrush(QColor(255, 59, 48));
    painter.drawEllipse(0, 0, 64, 64);
  }
  // Readable on light and on dark panels alike.
  const QColor body = recording ? QColor(Qt::white) : QColor(110, 110, 115);
  painter.setBrush(body);
  painter.drawRoundedRect(QRectF(23, 8, 18, 30), 9, 9);
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(body, 4, Qt::SolidLine, Qt::RoundCap));
  painter.drawArc(QRectF(16, 16, 32, 30), 180 * 16, 180 * 16);
  painter.drawLine(QPointF(32, 46), QPointF(32, 54));
  painter.drawLine(QPointF(23, 55), QPointF(41, 55));
  if (preRoll) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(255, 149, 0));
    painter.drawEllipse(QRectF(44, 4, 18, 18));
  }
  return QIcon(pixmap);
}

}  // namespace kestrin
