#pragma once

#include <functional>
#include <memory>
#include <string>

#include "diagnostics/logger.h"
#include "liveassist/chat_view.h"
#include "liveassist/context_panel.h"
#include "liveassist/file_content_cache.h"
#include "liveassist/live_assist_service.h"
#include "liveassist/live_assist_session_manager.h"
#include "liveassist/live_context.h"
#include "liveassist/live_feedback_window.h"

namespace kestrin {

/// Asks the backend every three seconds of a capture what helps in the conversation on screen: its
/// last lines of both sides, the ticked files, the pinned items. Shows the answer in the panel and
/// in the floating window; a failure shows in the log alone. Main queue only; must be destroyed
/// there.
class LiveContextLoop {
 public:
  static constexpr std::chrono::seconds refreshInterval{3};
  static constexpr size_t linesPerChannel = 12;

  struct Parts {
    Dispatch& dispatch;
    Logger& logger;
    std::shared_ptr<LiveContextClient> client;
    LiveAssistService& service;  ///< learns what is asked, for those parts that float
    LiveAssistChatView& chat;
    LiveAssistContextPanel& panel;
    LiveAssistSessionManager& sessions;
    FileContentCache& files;
    LiveFeedbackWindow& window;
    /// Capturing, and feedback switched on.
    std::function<bool()> isWanted;
    std::function<LALiveAssistUseCase()> useCase;
  };
  explicit LiveContextLoop(Parts parts) : parts_(std::move(parts)) {}

  void start();
  void stop() { timer_.reset(); }
  /// The next refresh asks for feedback at once.
  void clearPacing() { pacing_.clear(); }
  /// For another session: answers that are under way are dropped.
  void reset();

  bool isScheduled() const { return timer_ != nullptr; }
  const FeedbackPacing& pacing() const { return pacing_; }
  /// After each answer that was shown: its whole object.
  std::function<void(const Json&)> onAnswer;

 private:
  void refreshLiveContext();
  std::string transcript() const;
  std::vector<LAAttachedFile> tickedFiles() const;
  void send(LiveContextRequest request, size_t characters);
  void handle(const Result<Json>& answer, const LiveContextRequest& asked);
  void logAnswer(const Json& answer, const LiveContextRequest& asked);

  const Parts parts_;
  FeedbackPacing pacing_;
  TimerHandle timer_;
  int session_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
