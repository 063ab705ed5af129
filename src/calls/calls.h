#pragma once

#include <memory>
#include <string>

#include "calls/call_transcription.h"
#include "calls/calls_view.h"
#include "calls/embedded_video_call.h"
#include "identity/device_id_manager.h"
#include "liveassist/live_assist.h"

namespace kestrin {

/// Calls whole: signalling, presence, the page, and what is shown around a call wherever the user
/// is. Main queue only; must be destroyed there.
class Calls {
 public:
  static constexpr const char* callsTab = "Calls";
  static constexpr double leastTranscribed = 5;  ///< seconds; a recording must be longer

  /// What it is made from. All of these must outlive it.
  struct Sources {
    Dispatch& dispatch;
    Http& http;
    Audio& audio;
    Files& files;
    Random& random;
    SettingsStore& settings;
    NotificationCenter& center;
    Pasteboard& pasteboard;
    WebPages& webPages;
    Logger& logger;
    DeviceIdManager& deviceId;
    BehavioralProfileManager& profiles;
    LocalASRService& asr;
    Endpoints endpoints;
    std::string mediaLibrary;  ///< see CallPageServices
    std::function<LiveAssist&()> liveAssist;
  };
  /// What happens outside. Each may be empty.
  struct Hooks {
    std::function<void(UserNotification, Json userInfo,
                       std::function<void(const Result<uint32_t>&)> onShown)>
        notify;
    std::function<void(const std::string& tab)> navigateToTab;
    std::function<void()> requestUserAttention;
    std::function<void()> playRingtone;
    /// Nobody took a call that rang here.
    std::function<void()> missed;
  };

  explicit Calls(const Sources& sources);
  ~Calls();

  Hooks hooks;

  /// Presence, and from then on incoming calls: once this device's id has been read.
  void start();
  void stop();
  void setupGlobalIncomingCallHandler();

  // From a notification, a terminal or the banner:

  /// `done` may be empty; domain "CallService", code 4: nobody is calling.
  void answer(std::function<void(const Status&)> done);
  void decline() { banner_.declineClicked(); }
  void hangUp();
  /// To a device's id, or a name that the backend knows; the page shows how it goes.
  void place(const std::string& recipient);

  CallService& service() { return service_; }
  PresenceService& presence() { return presence_; }
  IncomingCallWindow& banner() { return banner_; }
  InCallAssistPanel& panel() { return assistance_.panel(); }
  CallsView& view() { return view_; }
  /// The call that was answered outside the page; null without one.
  EmbeddedVideoCallView* embedded() { return embedded_.get(); }
  /// The lines of the panel "Active Call"; empty without one.
  std::vector<std::string> activeCallLines() const;

  /// After a change of the embedded call.
  std::function<void()> onChange;

 private:
  void handleGlobalIncomingCall(const IncomingCall& call);
  void answerCall(const IncomingCall& call);
  void showVideoCallOverlay(const std::string& token, const std::string& roomName,
                            const std::string& callerName);
  void handleCallEnded(const std::optional<std::string>& audioURL, double duration);
  void changed() const {
    if (onChange) onChange();
  }

  const Sources sources_;
  CallService service_;
  PresenceService presence_;
  IncomingCallWindow banner_;
  InCallAssistance assistance_;
  const CallPageServices page_;
  CallTranscription transcription_;
  CallsView view_;
  std::unique_ptr<EmbeddedVideoCallView> embedded_;
  std::function<void(const Status&)> answered_;
  std::vector<SubscriptionHandle> subscriptions_;
  Lifetime lifetime_;
};

}  // namespace kestrin
