#pragma once

#include <deque>
#include <functional>
#include <string>

#include "app/status_line.h"
#include "platform/dates/dates.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"

namespace kestrin {

/// One finished dictation, as the history shows it.
struct HistoryEntry {
  std::string id;
  Date timestamp;
  std::string mode;
  std::string input;   ///< what was said
  std::string output;  ///< what came out
  std::string appContext;
};

/// What the main window shows and where it is. A view draws it. Main queue only.
class MainWindowController {
 public:
  static constexpr size_t maxHistoryEntries = 50;

  MainWindowController(Dispatch& dispatch, Random& random) : dispatch_(dispatch), random_(random) {}

  void updateStatus(const std::string& text, StatusColor color);
  void updateDetectedMode(const std::string& mode);
  void resetDetectedMode();
  void addHistoryEntry(const std::string& mode, const std::string& input, const std::string& output,
                       const std::string& appContext);
  void clearHistory();
  void navigateToTab(const std::string& tab);

  const StatusLine& status() const { return status_; }
  /// Empty when there is none.
  const std::string& detectedMode() const { return detectedMode_; }
  /// Newest first.
  const std::deque<HistoryEntry>& historyEntries() const { return historyEntries_; }
  const std::string& currentTab() const { return currentTab_; }

  /// After every change; a view redraws.
  std::function<void()> onChange;
  /// After each status line, also when it says the same again.
  std::function<void(const StatusLine&)> onStatus;

 private:
  void changed() {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  Random& random_;
  StatusLine status_;
  std::string detectedMode_;
  std::deque<HistoryEntry> historyEntries_;
  std::string currentTab_ = "home";
};

}  // namespace kestrin
