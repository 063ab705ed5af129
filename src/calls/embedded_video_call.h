#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "calls/call_page.h"
#include "calls/call_recording.h"
#include "calls/call_service.h"

namespace kestrin {

/// A call that was answered outside the calls page: its page, and the recording of the microphone
/// unless it is the overlay's. Main queue only; must be destroyed there.
class EmbeddedVideoCallView {
 public:
  struct Services {
    Dispatch& dispatch;
    Audio& audio;
    Files& files;
    Logger& logger;
    CallService& calls;
    CallPageServices page;
  };
  explicit EmbeddedVideoCallView(Services services, MediaPageHost host = MediaPageHost::embedded);

  void startCall(const std::string& token, const std::string& roomName,
                 const std::string& callerName);
  /// Without effect after the first time.
  void endCall();
  void endCallClicked();
  void toggleMute();
  void toggleCamera();
  void expand();

  const std::string& status() const { return status_; }
  const std::string& roomName() const { return roomName_; }
  const std::string& callerName() const { return callerName_; }
  bool isMuted() const { return isMuted_; }
  bool isCameraOff() const { return isCameraOff_; }
  std::string timerLabel() const { return formatDuration(static_cast<int64_t>(seconds())); }

  std::function<void(const std::optional<std::string>& recordingURL, double duration)> onCallEnded;
  std::function<void()> onExpandRequested;
  std::function<void()> onChange;

 private:
  double seconds() const;
  void show(const std::string& status);

  const Services services_;
  const MediaPageHost host_;
  std::string roomName_, callerName_, status_;
  bool isMuted_ = false, isCameraOff_ = false;
  std::optional<SteadyTime> callStartTime_;
  std::unique_ptr<CallRecording> audioRecorder_;
  std::unique_ptr<CallPage> page_;
  Lifetime lifetime_;
};

}  // namespace kestrin
