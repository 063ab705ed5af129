#include "liveassist/live_assist_service.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "LiveAssistService";

}  // namespace

LiveAssistService::LiveAssistService(Dispatch& dispatch, Logger& logger,
                                     std::shared_ptr<LiveContextClient> client)
    : dispatch_(dispatch), logger_(logger), client_(std::move(client)) {}

void LiveAssistService::appendTurn(const std::string& label, const std::string& text) {
  if (!conversationTranscript.empty()) conversationTranscript += '\n';
  conversationTranscript += "[" + label + "] " + text;
}

void LiveAssistService::start() {
  if (isRunning_) return;
  isRunning_ = true;
  ++run_;
  pacing_.clear();
  logger_.log(source, LogLevel::info, "Started feedback loop");
  const QueueRef main = dispatch_.mainQueue();
  refreshTimer_ = dispatch_.every(main, refreshInterval, [this] { refreshCycle(); });
  firstTimer_ = dispatch_.after(main, firstRefresh, [this] { refreshCycle(); });
}

void LiveAssistService::reset() {
  refreshTimer_.reset();
  firstTimer_.reset();
  isRunning_ = false;
  ++run_;
  logger_.log(source, LogLevel::info, "Stopped feedback loop");
  conversationTranscript.clear();
  contactEmail.reset();
  documentsPayload.clear();
  pinnedItems.clear();
  pacing_.clear();
}

void LiveAssistService::refreshCycle() {
  if (conversationTranscript.empty()) return;
  const size_t characters = text::characterCount(conversationTranscript);
  const SteadyTime now = dispatch_.clock().steadyNow();
  const bool feedback = pacing_.wantsFeedback(conversationTranscript, characters, now);
  client_->refresh({contactEmail, conversationTranscript, documentsPayload, feedback, useCase,
                    contextFilters, pinnedItems},
                   lifetime_.guard([this, feedback, run = run_](const Result<Json>& answer) {
                     // Feedback on one call must not show in the next.
                     if (run == run_) handle(answer, feedback);
                   }));
  if (feedback) pacing_.asked(now);
  logger_.log(source, LogLevel::info,
              "🔄 Refreshing (transcript: " + std::to_string(characters) +
                  " chars, feedback: " + (feedback ? "true" : "false") + ")");
}

void LiveAssistService::handle(const Result<Json>& answer, bool generateFeedback) {
  if (generateFeedback) pacing_.answered();
  if (!answer && answer.error().domain == liveContextDomain) {
    return logger_.log(source, LogLevel::warning, "Invalid or failed response");
  }
  if (!answer) {
    const std::string& description = answer.error().description;
    logger_.log(source, LogLevel::error, "Request failed: " + description);
    return tell([&](LiveAssistServiceDelegate& each) { each.didFail(*this, description); });
  }
  if (const auto summary = answer->stringAt("feedbackSummary", ""); !summary.empty()) {
    pacing_.received(dispatch_.clock().steadyNow());
    logger_.log(source, LogLevel::info, "✅ Feedback: " + summary);
  }
  tell([&](LiveAssistServiceDelegate& each) { each.didReceiveFeedback(*this, *answer); });
}

void LiveAssistService::tell(const std::function<void(LiveAssistServiceDelegate&)>& what) {
  // Both before either is told: the first may change them.
  for (const auto& receiver : {delegate.lock(), floatingDelegate.lock()}) {
    if (receiver) what(*receiver);
  }
}

}  // namespace kestrin
