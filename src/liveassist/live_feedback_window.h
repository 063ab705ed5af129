#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// The small window at the top right, above all others, with the current summary and suggestions.
/// This is its state and its rules; a view draws it. Main queue only.
class LiveFeedbackWindow {
 public:
  static constexpr int widgetWidth = 320;
  static constexpr size_t mostSuggestions = 3;
  static constexpr std::chrono::seconds timestampInterval{5};

  explicit LiveFeedbackWindow(Dispatch& dispatch) : dispatch_(dispatch) {}

  /// After each change.
  std::function<void()> onChange;

  /// How long ago something came: "● now", "● 12s", "● 3m".
  static std::string ageLabel(Duration age);

  void showListening();
  /// Nothing in both changes nothing.
  void update(const std::string& summary, const std::vector<std::string>& suggestions);
  /// Hides it; what it showed is kept.
  void dismiss();
  /// Hides it and forgets everything.
  void clear();

  bool isVisible() const { return isVisible_; }
  /// Grows each time the window must come to the front, at the top right.
  int frontRequests() const { return frontRequests_; }
  bool isListening() const { return isListening_; }
  /// "◐ Listening…" while nothing has come; empty otherwise.
  std::string thinkingText() const { return isListening_ ? "◐ Listening…" : ""; }
  const std::string& currentSummary() const { return currentSummary_; }
  const std::vector<std::string>& currentSuggestions() const { return currentSuggestions_; }
  std::optional<SteadyTime> lastUpdateTime() const { return lastUpdateTime_; }

  /// As shown: cut to what fits.
  std::string summaryLabel() const;
  std::vector<std::string> suggestionRows() const;
  /// "● now", "● 12s", "● 3m"; empty before the first update.
  const std::string& timestampLabel() const { return timestampLabel_; }

 private:
  void show();
  void refreshTimestamp();
  void changed() const;

  Dispatch& dispatch_;
  bool isVisible_ = false;
  int frontRequests_ = 0;
  bool isListening_ = false;
  std::string currentSummary_;
  std::vector<std::string> currentSuggestions_;
  std::string timestampLabel_;
  std::optional<SteadyTime> lastUpdateTime_;
  TimerHandle timestampTimer_;
};

}  // namespace kestrin
