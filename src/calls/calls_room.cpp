#include <utility>

#include "calls/calls_view.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

constexpr const char* source = "Calls";
constexpr std::chrono::seconds pauseAfterCall{3};

}  // namespace

void CallsView::joinVideoRoom(const std::string& roomName) {
  const auto& call = services_.calls.currentCall();
  if (!call) return;
  callTimeoutTimer_.reset();
  isPlacing_ = false;
  isInCall_ = true;
  services_.settings.countUp("totalCalls");
  isMuted_ = false;
  isCameraOff_ = isAudioOnly_;
  roomName_ = roomName;
  otherName_ = services_.calls.currentCallerName().value_or(recipient_);
  callStartTime_ = services_.dispatch.clock().steadyNow();
  callTimer_ = services_.dispatch.every(services_.dispatch.mainQueue(), std::chrono::seconds(1),
                                        [this] { changed(); });
  page_ = std::make_unique<CallPage>(services_.page, MediaPageHost::callsView,
                                     MediaPageValues{call->token, roomName, isAudioOnly_},
                                     "Call with " + otherName_);
  page_->onClosed = lifetime_.guard([this] { endCallClicked(); });
  page_->onFailed = lifetime_.guard([this](const std::string& why) { pageFailed(why); });
  show(isAudioOnly_ ? "🎙 Audio call connected" : "🎥 Video call connected");
  activateLiveAssistForCall();
}

void CallsView::pageFailed(const std::string& why) {
  if (!isInCall_) return;
  // Not from within the page's own call.
  services_.dispatch.mainQueue()->post(lifetime_.guard([this, why] {
    if (!isInCall_) return;
    endCallClicked();
    show("❌ Call failed: " + why);
  }));
}

void CallsView::activateLiveAssistForCall() {
  services_.logger.log(source, LogLevel::info, "Live Assist activated for in-call assistance");
  services_.assistance.show(services_.calls.currentCallerName().value_or(""));
  services_.assistance.listen();
  services_.center.post("CallStartedWithLiveAssist");
  changed();
}

void CallsView::leaveVideoRoom() {
  if (!isInCall_) return;
  const int64_t duration = callSeconds();
  isInCall_ = false;
  callTimer_.reset();
  callTimeoutTimer_.reset();
  callStartTime_.reset();
  resetCallUI();
  // Its window closes with it; it may be its own call that has brought us here.
  services_.dispatch.mainQueue()->post(
      [page = std::shared_ptr<CallPage>(std::move(page_))]() mutable { page.reset(); });
  show("Call ended (" + formatDuration(duration) + ")");
  requestPostCallSummary(duration);
  services_.logger.log(source, LogLevel::info, "Live Assist deactivated — call ended");
  services_.assistance.end();
  refreshHistory();
  restAfter(pauseAfterCall);
}

int64_t CallsView::callSeconds() const {
  if (!callStartTime_) return 0;
  return std::chrono::duration_cast<std::chrono::seconds>(services_.dispatch.clock().steadyNow() -
                                                          *callStartTime_)
      .count();
}

std::string CallsView::timerLabel() const { return formatDuration(callSeconds()); }

void CallsView::requestPostCallSummary(int64_t duration) {
  std::string userName = services_.settings.string(UserPreferences::userNameKey, "");
  if (userName.empty()) userName = "User";
  summary_.requestPostCallSummary(
      {.roomName = roomName_.empty() ? "unknown" : roomName_,
       .callerName = otherName_.empty() ? recipient_ : otherName_,
       .userName = userName,
       .userId = deviceId(),
       .transcript = services_.assistance.liveAssist().conversationTranscript,
       .duration = duration});
}

}  // namespace kestrin
