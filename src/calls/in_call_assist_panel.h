#pragma once

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/live_assist_service.h"

namespace kestrin {

/// The floating panel of a call: what is said, and what helps. This is its state and its rules; a
/// view draws it. Make it with `std::make_shared`. Main queue only.
class InCallAssistPanel final : public LiveAssistServiceDelegate {
 public:
  static constexpr int screenMargin = 16;
  static constexpr size_t longestLine = 60, cutLine = 57;
  static constexpr size_t mostLines = 200;
  static constexpr std::chrono::seconds timestampInterval{5};

  struct Line {
    std::string label, text;
  };
  InCallAssistPanel(Dispatch& dispatch, Logger& logger) : dispatch_(dispatch), logger_(logger) {}

  void show(const std::string& callerName);
  void dismissPanel();
  void addTranscriptLine(const std::string& label, const std::string& text);
  void didReceiveFeedback(LiveAssistService& service, const Json& answer) override;
  void didFail(LiveAssistService& service, const std::string& description) override;

  /// Leaves a source of help out, or takes it in again; see LiveAssistContextPanel::sources().
  void toggleContextSource(const std::string& name);
  bool isSourceOn(const std::string& name) const;
  const std::map<std::string, bool>& contextFilters() const { return contextFilters_; }
  /// After a source was switched.
  std::function<void()> onSourcesChanged;

  bool isVisible() const { return isVisible_; }
  const std::string& callerName() const { return callerName_; }
  const std::deque<Line>& lines() const { return lines_; }
  const std::string& summary() const { return summary_; }
  const std::vector<std::string>& suggestions() const { return suggestions_; }
  /// Why the last feedback did not come; empty when it did.
  const std::string& problem() const { return problem_; }
  /// "● now", "● 12s"; empty before the first feedback.
  const std::string& timestampLabel() const { return timestampLabel_; }

  /// After each change; a view redraws.
  std::function<void()> onChange;

 private:
  void refreshTimestamp();
  void changed() const {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  Logger& logger_;
  bool isVisible_ = false;
  std::string callerName_, summary_, problem_, timestampLabel_;
  std::deque<Line> lines_;
  std::map<std::string, bool> contextFilters_;
  std::vector<std::string> suggestions_;
  std::optional<SteadyTime> lastFeedback_;
  TimerHandle timestampTimer_;
};

}  // namespace kestrin
