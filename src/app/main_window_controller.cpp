#include "app/main_window_controller.h"

namespace kestrin {

void MainWindowController::updateStatus(const std::string& text, StatusColor color) {
  status_ = {text, color};
  if (onStatus) onStatus(status_);
  changed();
}

void MainWindowController::updateDetectedMode(const std::string& mode) {
  detectedMode_ = mode;
  changed();
}

void MainWindowController::resetDetectedMode() {
  detectedMode_.clear();
  changed();
}

void MainWindowController::addHistoryEntry(const std::string& mode, const std::string& input,
                                           const std::string& output,
                                           const std::string& appContext) {
  historyEntries_.push_front(
      {random_.uuid(), dispatch_.clock().wallNow(), mode, input, output, appContext});
  if (historyEntries_.size() > maxHistoryEntries) historyEntries_.resize(maxHistoryEntries);
  changed();
}

void MainWindowController::clearHistory() {
  historyEntries_.clear();
  changed();
}

void MainWindowController::navigateToTab(const std::string& tab) {
  currentTab_ = tab;
  changed();
}

}  // namespace kestrin
