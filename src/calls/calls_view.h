#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "calls/call_page.h"
#include "calls/call_service.h"
#include "calls/contact_search.h"
#include "calls/in_call_assistance.h"
#include "calls/incoming_call_window.h"
#include "calls/post_call_summary.h"
#include "calls/presence_service.h"
#include "liveassist/live_feedback_window.h"
#include "platform/pasteboard.h"
#include "platform/settings.h"

namespace kestrin {

/// What calls are made of. All of it must outlive them.
struct CallsServices {
  Dispatch& dispatch;
  Http& http;
  SettingsStore& settings;
  NotificationCenter& center;
  Pasteboard& pasteboard;
  Logger& logger;
  BehavioralProfileManager& profiles;
  CallService& calls;
  PresenceService& presence;
  IncomingCallWindow& banner;
  InCallAssistance& assistance;
  CallPageServices page;
  /// Made when a call begins.
  std::function<LiveFeedbackWindow&()> feedbackWindow;
};

/// The page from which the user places and takes calls, and the controller behind it. Main queue
/// only; must be destroyed there.
class CallsView {
 public:
  static constexpr std::chrono::seconds answerLimit{30};
  static constexpr const char* restText = "Ready to make calls";
  static constexpr const char* emptyTitle = "No calls yet";
  static constexpr const char* emptyText = "Search a contact above to start your first call";

  explicit CallsView(CallsServices services);
  ~CallsView();
  CallsView(const CallsView&) = delete;
  CallsView& operator=(const CallsView&) = delete;

  // What the page's controls do:

  void controlTextDidChange(const std::string& recipient);
  void chooseContact(size_t index);
  void audioCallClicked() { place(true); }
  void videoCallClicked() { place(false); }
  void endCallClicked();
  void answerCallClicked();
  void declineCallClicked();
  void refreshOnlineUsers() { services_.presence.fetchOnlineUsers(); }
  void copyDeviceId();
  // An index beyond the list does nothing.
  void quickAudioCall(size_t index) { quickCall(index, true); }
  void quickVideoCall(size_t index) { quickCall(index, false); }
  void callBackClicked(const std::string& callId);
  void toggleMute();
  void toggleCamera();
  void toggleCallExpansion(const std::string& callId);
  void refreshHistory();
  /// People, history and contacts anew: what the page shows when it comes up.
  void refresh();
  void showPage() {
    if (page_) page_->raise();
  }

  /// Into the room of the current call; without one nothing happens.
  void joinVideoRoom(const std::string& roomName);

  const std::string& status() const { return status_; }
  const std::string& recipient() const { return recipient_; }
  /// Grows each time the recipient's field is to be shaken.
  int shakes() const { return shakes_; }
  bool isInCall() const { return isInCall_; }
  bool isPlacing() const { return isPlacing_; }
  bool isAudioOnly() const { return isAudioOnly_; }
  bool isMuted() const { return isMuted_; }
  bool isCameraOff() const { return isCameraOff_; }
  /// Neither on this page nor anywhere else is there a call.
  bool canCall() const { return !isInCall_ && !isPlacing_ && !services_.calls.currentCall(); }
  /// "01:05" while in a call.
  std::string timerLabel() const;
  const std::optional<IncomingCall>& currentIncomingCall() const { return currentIncomingCall_; }
  /// "🔔 Ada is calling".
  std::string bannerText() const;
  const std::vector<CallRecord>& callHistory() const { return callHistory_; }
  std::vector<CallGroup> historyGroups() const;
  bool isExpanded(const std::string& callId) const { return expandedCallIds_.contains(callId); }
  const std::vector<OnlineUser>& onlineUsers() const { return services_.presence.onlineUsers(); }
  ContactSearch& contacts() { return contacts_; }
  std::string deviceId() const { return services_.calls.currentUserId.value_or(""); }

  /// After each change; a view redraws.
  std::function<void()> onChange;
  std::function<void(UserNotification, Json userInfo,
                     std::function<void(const Result<uint32_t>&)> onShown)>
      notify;

 private:
  void setupCallbacks();
  void updateHistory(const std::vector<CallRecord>& calls);
  void place(bool audioOnly);
  void startCall();
  void handleCallTimeout();
  void quickCall(size_t index, bool audioOnly);
  void resetCallUI();
  void handleCallStatusChange(CallStatus status);
  void showIncomingCall(const IncomingCall& call);
  void hideBanner();
  void leaveFailure();
  void leaveVideoRoom();
  void pageFailed(const std::string& why);
  void activateLiveAssistForCall();
  void requestPostCallSummary(int64_t duration);
  void show(const std::string& status);
  /// The rest's text, unless something else has begun meanwhile.
  void restAfter(Duration pause);
  int64_t callSeconds() const;
  void changed() const {
    if (onChange) onChange();
  }

  const CallsServices services_;
  ContactSearch contacts_;
  PostCallSummary summary_;
  std::unique_ptr<CallPage> page_;
  std::string status_ = restText, recipient_;
  int shakes_ = 0;
  bool isInCall_ = false, isPlacing_ = false, isAudioOnly_ = false, isMuted_ = false,
       isCameraOff_ = false;
  std::optional<IncomingCall> currentIncomingCall_;
  std::set<std::string> expandedCallIds_;
  std::vector<CallRecord> callHistory_;
  /// Kept for the summary: the service forgets both when the call ends.
  std::string roomName_, otherName_;
  std::optional<SteadyTime> callStartTime_;
  TimerHandle callTimer_, callTimeoutTimer_;
  int rests_ = 0;
  SubscriptionHandle callBack_;
  Lifetime lifetime_;
};

}  // namespace kestrin
