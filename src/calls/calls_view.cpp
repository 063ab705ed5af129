#include "calls/calls_view.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

constexpr const char* source = "Calls";
constexpr const char* nobody = "⚠️ Enter a contact to call";
constexpr std::chrono::seconds pauseAfterDecline{2}, pauseAfterTimeout{3}, pauseAfterFailure{3};

}  // namespace

CallsView::CallsView(CallsServices services)
    : services_(std::move(services)),
      contacts_(services_.dispatch, services_.http, services_.page.backend),
      summary_(services_.dispatch, services_.http, services_.logger, services_.profiles,
               services_.page.backend) {
  setupCallbacks();
}

CallsView::~CallsView() {
  services_.calls.onCallStatusChanged = nullptr;
  services_.calls.onIncomingCall = nullptr;
  services_.calls.onCallHistoryUpdated = nullptr;
  services_.presence.onUsersUpdated = nullptr;
}

void CallsView::setupCallbacks() {
  services_.calls.onCallStatusChanged = [this](CallStatus status) {
    handleCallStatusChange(status);
  };
  services_.calls.onIncomingCall = [this](const IncomingCall& call) { showIncomingCall(call); };
  services_.calls.onCallHistoryUpdated = [this](const std::vector<CallRecord>& calls) {
    updateHistory(calls);
  };
  services_.presence.onUsersUpdated = [this](const std::vector<OnlineUser>&) { changed(); };
  contacts_.onChange = [this] { changed(); };
  summary_.notify = [this](UserNotification notification, Json userInfo,
                           std::function<void(const Result<uint32_t>&)> onShown) {
    if (notify) notify(std::move(notification), std::move(userInfo), std::move(onShown));
  };
  summary_.onSummary = [this](const std::string& callerName, const std::string& summary) {
    show(PostCallSummary::savedStatus);
    services_.feedbackWindow().update("📋 Call with " + callerName + " ended", {summary});
    refreshHistory();
  };
  callBack_ =
      services_.center.observe("CallBackRequested", lifetime_.guard([this](const Json& userInfo) {
        const std::string name = userInfo.stringAt("callerName", "");
        recipient_ = name;
        services_.logger.log(source, LogLevel::info, "Pre-filled recipient for callback: " + name);
        changed();
      }));
}

void CallsView::refresh() {
  contacts_.deviceId = deviceId();
  contacts_.fetchContacts();
  refreshOnlineUsers();
  refreshHistory();
}

void CallsView::controlTextDidChange(const std::string& recipient) {
  recipient_ = recipient;
  contacts_.deviceId = deviceId();
  contacts_.typed(recipient);
}

void CallsView::chooseContact(size_t index) {
  if (index >= contacts_.shown().size()) return;
  recipient_ = contacts_.shown()[index].address();
  contacts_.hide();
  changed();
}

void CallsView::place(bool audioOnly) {
  if (!isInCall_) isAudioOnly_ = audioOnly;
  startCall();
}

void CallsView::startCall() {
  if (isInCall_ || services_.calls.currentCall()) {
    return services_.logger.log(source, LogLevel::warning, "Already in a call, ignoring startCall");
  }
  if (isPlacing_) return;
  const std::string recipient = text::trim(recipient_);
  if (recipient.empty()) {
    ++shakes_;
    return show(nobody);
  }
  contacts_.hide();
  isPlacing_ = true;
  show("📞 Calling " + recipient + "…");
  std::string callerName = services_.settings.string(UserPreferences::userNameKey, "");
  if (callerName.empty()) callerName = "User";
  callTimeoutTimer_ = services_.dispatch.after(services_.dispatch.mainQueue(), answerLimit,
                                               [this] { handleCallTimeout(); });
  services_.calls.initiateCall(recipient, callerName,
                               lifetime_.guard([this](const Result<std::string>& roomName) {
                                 if (!roomName) {
                                   show("❌ Call failed: " + roomName.error().description);
                                   return resetCallUI();
                                 }
                                 show("🔔 Ringing…");
                                 joinVideoRoom(*roomName);
                               }));
}

void CallsView::handleCallTimeout() {
  callTimeoutTimer_.reset();
  if (isInCall_) return;
  services_.calls.endCall("timeout");
  show("📵 No answer");
  resetCallUI();
  restAfter(pauseAfterTimeout);
}

void CallsView::endCallClicked() {
  callTimeoutTimer_.reset();
  services_.calls.endCall("ended");
  leaveVideoRoom();
}

void CallsView::answerCallClicked() {
  if (!currentIncomingCall_) return;
  const IncomingCall call = *currentIncomingCall_;
  hideBanner();
  show("🔗 Connecting…");
  isAudioOnly_ = false;
  services_.calls.answerCall(call.roomName,
                             lifetime_.guard([this, call](const Result<std::string>& token) {
                               if (!token) return show("❌ Failed: " + token.error().description);
                               joinVideoRoom(call.roomName);
                             }));
}

void CallsView::declineCallClicked() {
  if (!currentIncomingCall_) return;
  hideBanner();
  show("Call declined");
  services_.calls.endCall("declined");
  restAfter(pauseAfterDecline);
}

void CallsView::copyDeviceId() {
  services_.dispatch.globalQueue()->post(
      [&pasteboard = services_.pasteboard, id = deviceId()] { (void)pasteboard.setString(id); });
  show("Device ID copied");
  restAfter(pauseAfterDecline);
}

void CallsView::quickCall(size_t index, bool audioOnly) {
  if (index >= onlineUsers().size()) return;
  recipient_ = onlineUsers()[index].deviceId;
  place(audioOnly);
}

void CallsView::callBackClicked(const std::string& callId) {
  const auto call = std::find_if(callHistory_.begin(), callHistory_.end(),
                                 [&](const CallRecord& each) { return each.id == callId; });
  if (call == callHistory_.end()) return;
  recipient_ = call->direction == "outgoing" ? call->recipientId : call->callerId;
  place(true);
}

void CallsView::toggleMute() {
  isMuted_ = !isMuted_;
  if (page_) page_->setMuted(isMuted_);
  changed();
}

void CallsView::toggleCamera() {
  isCameraOff_ = !isCameraOff_;
  if (page_) page_->setCameraOff(isCameraOff_);
  changed();
}

void CallsView::toggleCallExpansion(const std::string& callId) {
  if (expandedCallIds_.erase(callId) == 0) expandedCallIds_.insert(callId);
  changed();
}

void CallsView::refreshHistory() {
  // What comes is told by `onCallHistoryUpdated`.
  if (!services_.calls.currentUserId) return updateHistory({});
  services_.calls.fetchCallHistory({});
}

void CallsView::updateHistory(const std::vector<CallRecord>& calls) {
  callHistory_ = calls;
  changed();
}

std::vector<CallGroup> CallsView::historyGroups() const {
  return groupCallsByDate(callHistory_, services_.dispatch.clock().wallNow());
}

std::string CallsView::bannerText() const {
  return currentIncomingCall_ ? "🔔 " + currentIncomingCall_->callerName + " is calling" : "";
}

void CallsView::resetCallUI() {
  callTimeoutTimer_.reset();
  isPlacing_ = false;
  changed();
}

void CallsView::handleCallStatusChange(CallStatus status) {
  const auto leave = [this] {
    if (isInCall_) leaveVideoRoom();
    hideBanner();
  };
  switch (status) {
    case CallStatus::idle:
      leave();
      show(restText);
      return resetCallUI();
    case CallStatus::ringing:
      return show("🔔 Ringing…");
    case CallStatus::connecting:
      // Answered somewhere else, perhaps: it rings no longer.
      hideBanner();
      return show("🔗 Connecting…");
    case CallStatus::connected:
      return show(isAudioOnly_ ? "🎙 Connected" : "🎥 Connected");
    case CallStatus::ended:
    case CallStatus::declined:
      return leave();
    case CallStatus::failed:
      show("❌ Call failed");
      leave();
      services_.assistance.panel().dismissPanel();
      leaveFailure();
      return resetCallUI();
  }
}

/// Nobody can ring before the failed call is over.
void CallsView::leaveFailure() {
  services_.dispatch.mainQueue()->postAfter(pauseAfterFailure, lifetime_.guard([this] {
    if (services_.calls.callStatus() == CallStatus::failed) services_.calls.endCall("ended");
  }));
}

void CallsView::showIncomingCall(const IncomingCall& call) {
  currentIncomingCall_ = call;
  changed();
}

void CallsView::hideBanner() {
  services_.banner.dismissBanner();
  if (std::exchange(currentIncomingCall_, std::nullopt)) changed();
}

void CallsView::show(const std::string& status) {
  ++rests_;
  status_ = status;
  changed();
}

void CallsView::restAfter(Duration pause) {
  services_.dispatch.mainQueue()->postAfter(pause, lifetime_.guard([this, rest = rests_] {
    if (rest == rests_ && !isInCall_ && !isPlacing_) show(restText);
  }));
}

}  // namespace kestrin
