#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/live_context.h"
#include "platform/lifetime.h"

namespace kestrin {

class LiveAssistService;

/// Called on the main queue.
class LiveAssistServiceDelegate {
 public:
  virtual ~LiveAssistServiceDelegate() = default;
  /// The whole answer: `feedbackSummary`, `suggestions`, `keywords`, `memoryItems`, `docItems`, as
  /// far as they came.
  virtual void didReceiveFeedback(LiveAssistService& service, const Json& answer) = 0;
  virtual void didFail(LiveAssistService& service, const std::string& description) = 0;
};

/// The feedback loop of a call: keeps the conversation as it goes and asks the backend every three
/// seconds what helps. Main queue only; must be destroyed there.
class LiveAssistService {
 public:
  static constexpr std::chrono::seconds refreshInterval{3};
  static constexpr std::chrono::seconds firstRefresh{2};

  LiveAssistService(Dispatch& dispatch, Logger& logger, std::shared_ptr<LiveContextClient> client);

  /// Told in this order.
  std::weak_ptr<LiveAssistServiceDelegate> delegate, floatingDelegate;

  // What each request says, besides the transcript.
  std::map<std::string, bool> contextFilters;
  std::optional<std::string> contactEmail;
  LALiveAssistUseCase useCase = LALiveAssistUseCase::meeting;
  std::vector<Json> documentsPayload;
  std::vector<Json> pinnedItems;
  std::string conversationTranscript;

  /// "[Other] Good morning", on a line of its own.
  void appendTurn(const std::string& label, const std::string& text);
  void start();
  /// Stops and forgets the conversation; answers that are still under way are dropped.
  void reset();

  bool isRunning() const { return isRunning_; }
  const FeedbackPacing& pacing() const { return pacing_; }

 private:
  void refreshCycle();
  void handle(const Result<Json>& answer, bool generateFeedback);
  void tell(const std::function<void(LiveAssistServiceDelegate&)>& what);

  Dispatch& dispatch_;
  Logger& logger_;
  const std::shared_ptr<LiveContextClient> client_;
  bool isRunning_ = false;
  int run_ = 0;
  FeedbackPacing pacing_;
  TimerHandle refreshTimer_, firstTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
