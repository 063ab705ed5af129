#include "calls/in_call_assist_panel.h"

#include "liveassist/live_feedback_window.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "InCallAssist";

}  // namespace

void InCallAssistPanel::show(const std::string& callerName) {
  if (isVisible_) dismissPanel();
  callerName_ = callerName;
  summary_.clear();
  problem_.clear();
  timestampLabel_.clear();
  lines_.clear();
  suggestions_.clear();
  lastFeedback_.reset();
  isVisible_ = true;
  timestampTimer_ = dispatch_.every(dispatch_.mainQueue(), timestampInterval, [this] {
    refreshTimestamp();
    changed();
  });
  logger_.log(source, LogLevel::info, "Panel shown for call with " + callerName);
  changed();
}

void InCallAssistPanel::dismissPanel() {
  if (!isVisible_) return;
  isVisible_ = false;
  timestampTimer_.reset();
  changed();
}

void InCallAssistPanel::addTranscriptLine(const std::string& label, const std::string& text) {
  const bool fits = text::characterCount(text) <= longestLine;
  lines_.push_back({label, fits ? text : text::prefix(text, cutLine) + "..."});
  if (lines_.size() > mostLines) lines_.pop_front();
  changed();
}

void InCallAssistPanel::didReceiveFeedback(LiveAssistService&, const Json& answer) {
  const std::string summary = answer.stringAt("feedbackSummary", "");
  const auto suggestions = answer.stringsAt("suggestions");
  problem_.clear();
  if (!summary.empty() || !suggestions.empty()) {
    summary_ = summary;
    suggestions_ = suggestions;
    lastFeedback_ = dispatch_.clock().steadyNow();
    refreshTimestamp();
  }
  changed();
}

void InCallAssistPanel::didFail(LiveAssistService&, const std::string& description) {
  problem_ = description;
  changed();
}

void InCallAssistPanel::toggleContextSource(const std::string& name) {
  contextFilters_[name] = !isSourceOn(name);
  if (onSourcesChanged) onSourcesChanged();
  changed();
}

bool InCallAssistPanel::isSourceOn(const std::string& name) const {
  const auto found = contextFilters_.find(name);
  return found == contextFilters_.end() || found->second;
}

void InCallAssistPanel::refreshTimestamp() {
  if (!lastFeedback_) return;
  timestampLabel_ = LiveFeedbackWindow::ageLabel(dispatch_.clock().steadyNow() - *lastFeedback_);
}

}  // namespace kestrin
