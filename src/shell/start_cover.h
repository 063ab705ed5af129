#pragma once

#include <QWidget>

#include "app/loading_overlay_view.h"
#include "app/setup_checklist.h"
#include "shell/design/controls.h"

namespace kestrin {

/// Lies over the main window until dictation works: first what is missing and how to mend it, then
/// how far the services have come.
class StartCover final : public QWidget {
 public:
  StartCover(SetupChecklist& setup, LoadingOverlayView& loading, QWidget* parent);
  ~StartCover() override;
  void refresh();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void showSetup();
  void showServices();

  SetupChecklist& setup_;
  LoadingOverlayView& loading_;
  QVBoxLayout* column_;
  QWidget* services_;
  QWidget* items_;
  QVBoxLayout* itemList_;
  QLabel* status_;
  QLabel* rows_[4];
  std::string shownItems_;
};

}  // namespace kestrin
