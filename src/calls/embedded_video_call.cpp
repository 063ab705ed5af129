#include "calls/embedded_video_call.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {

EmbeddedVideoCallView::EmbeddedVideoCallView(Services services, MediaPageHost host)
    : services_(std::move(services)), host_(host) {}

void EmbeddedVideoCallView::startCall(const std::string& token, const std::string& roomName,
                                      const std::string& callerName) {
  roomName_ = roomName;
  callerName_ = callerName;
  callStartTime_ = services_.dispatch.clock().steadyNow();
  show("Connected with " + callerName);
  if (host_ == MediaPageHost::embedded) {
    audioRecorder_ = std::make_unique<CallRecording>(services_.dispatch, services_.audio,
                                                     services_.files, services_.logger);
    audioRecorder_->start(
        callRecordingPath(services_.files, roomName, services_.dispatch.clock().wallNow()));
  }
  page_ = std::make_unique<CallPage>(services_.page, host_, MediaPageValues{token, roomName, false},
                                     "Call with " + callerName);
  page_->onClosed = lifetime_.guard([this] { endCallClicked(); });
  page_->onFailed = lifetime_.guard([this](const std::string&) { show("Connection error"); });
}

void EmbeddedVideoCallView::endCallClicked() {
  services_.logger.print("📞 End call clicked");
  services_.calls.endCall("ended");
  endCall();
}

void EmbeddedVideoCallView::endCall() {
  if (!callStartTime_) return;
  const double duration = seconds();
  callStartTime_.reset();
  // It may be the page itself that has brought us here.
  services_.dispatch.mainQueue()->post(
      [page = std::shared_ptr<CallPage>(std::move(page_))]() mutable { page.reset(); });
  services_.logger.print("📞 EmbeddedVideoCall: Call ended, duration: " + text::fixed(duration, 1));
  const std::function<void(const std::optional<std::string>&)> ended =
      lifetime_.guard([this, duration](const std::optional<std::string>& file) {
        if (onCallEnded) onCallEnded(file, duration);
      });
  if (audioRecorder_) return audioRecorder_->stop(ended);
  services_.dispatch.mainQueue()->post([ended] { ended(std::nullopt); });
}

void EmbeddedVideoCallView::toggleMute() {
  isMuted_ = !isMuted_;
  if (page_) page_->setMuted(isMuted_);
  if (onChange) onChange();
}

void EmbeddedVideoCallView::toggleCamera() {
  isCameraOff_ = !isCameraOff_;
  if (page_) page_->setCameraOff(isCameraOff_);
  if (onChange) onChange();
}

void EmbeddedVideoCallView::expand() {
  if (page_) page_->raise();
  if (onExpandRequested) onExpandRequested();
}

double EmbeddedVideoCallView::seconds() const {
  if (!callStartTime_) return 0;
  return std::chrono::duration<double>(services_.dispatch.clock().steadyNow() - *callStartTime_)
      .count();
}

void EmbeddedVideoCallView::show(const std::string& status) {
  status_ = status;
  if (onChange) onChange();
}

}  // namespace kestrin
