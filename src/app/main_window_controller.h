#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/status_line.h"
#include "notes/history.h"

namespace kestrin {

/// What the main window shows and where it is. A view draws it. Main queue only.
class MainWindowController {
 public:
  MainWindowController(History::Services services, std::string holdKeyName);

  void updateStatus(const std::string& text, StatusColor color);
  void updateDetectedMode(const std::string& mode);
  void resetDetectedMode();
  void navigateToTab(const std::string& tab);

  // The history page; see History.
  void addHistoryEntry(const std::string& mode, const std::string& input, const std::string& output,
                       const std::string& appContext) {
    history_.addHistoryEntry(mode, input, output, appContext);
  }
  void fetchHistoryFromServer() { history_.fetchHistoryFromServer(); }
  void mergeHistory(const std::vector<HistoryEntry>& serverEntries) {
    history_.mergeHistory(serverEntries);
  }
  std::vector<HistoryDay> groupEntriesByDate() const { return history_.groupEntriesByDate(); }
  void fetchModeHistogram(const std::string& userId) { history_.fetchModeHistogram(userId); }
  /// Newest first.
  const std::vector<HistoryEntry>& historyEntries() const { return history_.historyEntries(); }
  /// The lines of an empty history page, with the name of the hold key.
  std::vector<std::string> historyEmptyText() const;
  History& history() { return history_; }

  const StatusLine& status() const { return status_; }
  /// Empty when there is none.
  const std::string& detectedMode() const { return detectedMode_; }
  const std::string& currentTab() const { return currentTab_; }

  /// After every change; a view redraws.
  std::function<void()> onChange;
  /// After each status line, also when it says the same again.
  std::function<void(const StatusLine&)> onStatus;

 private:
  void changed() {
    if (onChange) onChange();
  }

  const std::string holdKeyName_;
  StatusLine status_;
  std::string detectedMode_;
  std::string currentTab_ = "home";
  History history_;
};

}  // namespace kestrin
