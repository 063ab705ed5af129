#include "calls/calls.h"

#include <utility>

#include "platform/dispatch/background.h"

namespace kestrin {
namespace {

constexpr const char* source = "Calls";
constexpr const char* homeTab = "Home";

}  // namespace

Calls::Calls(const Sources& sources)
    : sources_(sources),
      service_(sources.dispatch, sources.http, sources.center, sources.logger, sources.endpoints),
      presence_(sources.dispatch, sources.http, sources.settings, sources.logger,
                sources.endpoints),
      banner_(sources.dispatch, sources.logger),
      assistance_({sources.dispatch, sources.http, sources.audio, sources.random, sources.logger,
                   sources.profiles, sources.endpoints},
                  std::make_shared<InCallAssistPanel>(sources.dispatch, sources.logger),
                  [this]() -> LiveAssistService& { return sources_.liveAssist().service(); }),
      page_{sources.dispatch,
            sources.webPages,
            sources.random,
            sources.logger,
            sources.http.makeSession({}),
            sources.endpoints.backend,
            sources.mediaLibrary},
      transcription_(sources.dispatch, sources.http, sources.asr, sources.logger,
                     sources.endpoints.backend),
      view_({.dispatch = sources.dispatch,
             .http = sources.http,
             .settings = sources.settings,
             .center = sources.center,
             .pasteboard = sources.pasteboard,
             .logger = sources.logger,
             .profiles = sources.profiles,
             .calls = service_,
             .presence = presence_,
             .banner = banner_,
             .assistance = assistance_,
             .page = page_,
             .feedbackWindow = [this]() -> LiveFeedbackWindow& {
               return sources_.liveAssist().feedbackWindow();
             }}) {
  const auto notify = [this](UserNotification notification, Json userInfo,
                             std::function<void(const Result<uint32_t>&)> onShown) {
    if (hooks.notify)
      hooks.notify(std::move(notification), std::move(userInfo), std::move(onShown));
  };
  const auto attention = [this] {
    if (hooks.requestUserAttention) hooks.requestUserAttention();
  };
  view_.notify = notify;
  banner_.notify = notify;
  banner_.requestUserAttention = attention;
  service_.requestUserAttention = attention;
  banner_.playRingtone = [this] {
    if (hooks.playRingtone) hooks.playRingtone();
  };
  service_.onShowVideoCall = [this](const std::string& token, const std::string& roomName,
                                    const std::string& callerName) {
    showVideoCallOverlay(token, roomName, callerName);
  };
  service_.onHideVideoCall = [this] {
    if (embedded_) embedded_->endCall();
  };
}

Calls::~Calls() = default;

void Calls::start() {
  inBackground(
      sources_.dispatch, sources_.dispatch.globalQueue(), lifetime_,
      [&deviceId = sources_.deviceId] { return deviceId.deviceId(); },
      [this](const std::string& id) {
        service_.currentUserId = id;
        presence_.deviceId = id;
        presence_.startPresence();
        service_.startPollingForIncomingCalls();
      });
}

void Calls::stop() {
  service_.stopPolling();
  hangUp();
  presence_.stopPresence();
}

void Calls::setupGlobalIncomingCallHandler() {
  subscriptions_.push_back(sources_.center.observe(
      CallService::incomingCallReceived, lifetime_.guard([this](const Json& call) {
        handleGlobalIncomingCall(IncomingCall::fromJson(call));
      })));
  subscriptions_.push_back(sources_.center.observe(
      CallService::callConnected, lifetime_.guard([this](const Json& userInfo) {
        // It may be over already.
        if (!service_.currentCall()) return;
        assistance_.show(userInfo.stringAt("callerName", ""));
      })));
  // Whoever ends the call, the one that was answered outside the page ends with it.
  subscriptions_.push_back(
      sources_.center.observe(CallService::callEnded, lifetime_.guard([this](const Json&) {
        if (service_.onHideVideoCall) service_.onHideVideoCall();
      })));
}

void Calls::handleGlobalIncomingCall(const IncomingCall& call) {
  banner_.onAnswer = [this](const IncomingCall& answered) { answerCall(answered); };
  banner_.onDecline = [this](const IncomingCall&) { service_.endCall("declined"); };
  banner_.onTimeout = [this](const IncomingCall&) {
    service_.endCall("timeout");
    if (hooks.missed) hooks.missed();
  };
  banner_.show(call);
}

void Calls::answerCall(const IncomingCall& call) {
  sources_.logger.log(source, LogLevel::info, "Global banner: answering " + call.callerName);
  service_.answerCall(call.roomName,
                      lifetime_.guard([this, call](const Result<std::string>& token) {
                        const auto done = std::exchange(answered_, nullptr);
                        if (done) done(token ? Status() : fail(token.error()));
                        if (token && service_.onShowVideoCall)
                          service_.onShowVideoCall(*token, call.roomName, call.callerName);
                      }));
}

void Calls::answer(std::function<void(const Status&)> done) {
  if (!banner_.currentCall()) {
    if (done) done(fail("CallService", 4, "Nobody is calling"));
    return;
  }
  answered_ = std::move(done);
  banner_.answerClicked();
}

void Calls::hangUp() {
  if (banner_.currentCall()) return decline();
  if (view_.isInCall()) return view_.endCallClicked();
  if (embedded_) return embedded_->endCallClicked();
  if (service_.callStatus() != CallStatus::idle) service_.endCall("ended");
}

void Calls::place(const std::string& recipient) {
  if (hooks.navigateToTab) hooks.navigateToTab(callsTab);
  view_.controlTextDidChange(recipient);
  view_.audioCallClicked();
}

void Calls::showVideoCallOverlay(const std::string& token, const std::string& roomName,
                                 const std::string& callerName) {
  if (hooks.navigateToTab) hooks.navigateToTab(homeTab);
  embedded_ = std::make_unique<EmbeddedVideoCallView>(EmbeddedVideoCallView::Services{
      sources_.dispatch, sources_.audio, sources_.files, sources_.logger, service_, page_});
  embedded_->onChange = [this] { changed(); };
  embedded_->onCallEnded =
      lifetime_.guard([this](const std::optional<std::string>& audioURL, double duration) {
        handleCallEnded(audioURL, duration);
      });
  embedded_->startCall(token, roomName, callerName);
  sources_.settings.countUp("totalCalls");
  assistance_.listen();
  changed();
}

void Calls::handleCallEnded(const std::optional<std::string>& audioURL, double duration) {
  if (!embedded_) return;
  const CallTranscription::Call call{embedded_->roomName(), embedded_->callerName(),
                                     service_.currentUserId.value_or(""), duration};
  // Not while one of its own functions runs.
  sources_.dispatch.mainQueue()->post([gone = std::shared_ptr<EmbeddedVideoCallView>(
                                           std::move(embedded_))]() mutable { gone.reset(); });
  assistance_.end();
  changed();
  if (audioURL && duration > leastTranscribed) {
    return transcription_.transcribeCallRecording(
        *audioURL, call, lifetime_.guard([this] { view_.refreshHistory(); }));
  }
  sources_.logger.print("📞 Call too short or no recording, skipping transcription");
}

std::vector<std::string> Calls::activeCallLines() const {
  if (!embedded_) return {};
  return {"Incoming call from " + embedded_->callerName(),
          "Connected • Tap to expand",
          "Recording call audio",
          "Will transcribe after call ends",
          "AI will summarize",
          "Transcript saved to call history"};
}

}  // namespace kestrin
