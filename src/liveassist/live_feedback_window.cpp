#include "liveassist/live_feedback_window.h"

#include <algorithm>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t summaryRoom = 90;
constexpr size_t suggestionRoom = 70;

std::string fitted(const std::string& text, size_t room) {
  return text::characterCount(text) <= room ? text : text::prefix(text, room - 3) + "...";
}

}  // namespace

void LiveFeedbackWindow::changed() const {
  if (onChange) onChange();
}

void LiveFeedbackWindow::show() {
  isVisible_ = true;
  ++frontRequests_;
  timestampTimer_ = dispatch_.every(dispatch_.mainQueue(), timestampInterval, [this] {
    refreshTimestamp();
    changed();
  });
}

void LiveFeedbackWindow::showListening() {
  isListening_ = true;
  show();
  refreshTimestamp();
  changed();
}

void LiveFeedbackWindow::update(const std::string& summary,
                                const std::vector<std::string>& suggestions) {
  if (summary.empty() && suggestions.empty()) return;
  isListening_ = false;
  currentSummary_ = summary;
  currentSuggestions_ = suggestions;
  lastUpdateTime_ = dispatch_.clock().steadyNow();
  if (!isVisible_) show();
  refreshTimestamp();
  changed();
}

void LiveFeedbackWindow::dismiss() {
  isVisible_ = false;
  timestampTimer_.reset();
  changed();
}

void LiveFeedbackWindow::clear() {
  isListening_ = false;
  currentSummary_.clear();
  currentSuggestions_.clear();
  timestampLabel_.clear();
  lastUpdateTime_.reset();
  dismiss();
}

void LiveFeedbackWindow::refreshTimestamp() {
  if (!lastUpdateTime_) return;
  timestampLabel_ = ageLabel(dispatch_.clock().steadyNow() - *lastUpdateTime_);
}

std::string LiveFeedbackWindow::ageLabel(Duration age) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(age).count();
  return "● " + (seconds < 5    ? "now"
                 : seconds < 60 ? std::to_string(seconds) + "s"
                                : std::to_string(seconds / 60) + "m");
}

std::string LiveFeedbackWindow::summaryLabel() const {
  return fitted(currentSummary_, summaryRoom);
}

std::vector<std::string> LiveFeedbackWindow::suggestionRows() const {
  std::vector<std::string> rows;
  if (isListening_) return rows;
  for (const std::string& each : currentSuggestions_) {
    if (rows.size() < mostSuggestions) rows.push_back(fitted(each, suggestionRoom));
  }
  return rows;
}

}  // namespace kestrin
