#pragma once

#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>
#include <functional>

#include "app/application.h"

namespace kestrin {

/// The status item: an icon that shows whether the microphone is open, and a small menu. Where the
/// desktop has no tray it waits for one; nothing depends on it.
class TrayItem {
 public:
  TrayItem(Application& application, std::function<void()> quit);

  void refresh();

 private:
  static QIcon drawIcon(bool recording, bool preRoll);

  Application& application_;
  QMenu menu_;
  QAction* statusAction_;
  QAction* sendAgainAction_;
  QAction* elevateAction_;
  QAction* setupAction_;
  QAction* startAnywayAction_;
  QSystemTrayIcon icon_;
  bool shownRecording_ = false;
  bool shownPreRoll_ = false;
};

}  // namespace kestrin
