#include "app/main_window_controller.h"

#include <utility>

namespace kestrin {

MainWindowController::MainWindowController(History::Services services, std::string holdKeyName)
    : holdKeyName_(std::move(holdKeyName)), history_(services) {
  history_.onChange = [this] { changed(); };
}

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

std::vector<std::string> MainWindowController::historyEmptyText() const {
  std::vector<std::string> lines = history_.emptyText();
  // What the user searched for is not ours to reword.
  if (!historyEntries().empty()) return lines;
  for (std::string& line : lines) line = nameHoldKey(std::move(line), holdKeyName_);
  return lines;
}

void MainWindowController::navigateToTab(const std::string& tab) {
  currentTab_ = tab;
  changed();
}

}  // namespace kestrin
