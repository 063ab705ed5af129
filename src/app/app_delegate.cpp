#include "app/app_delegate.h"

#include <utility>

namespace kestrin {

AppDelegate::AppDelegate(DictationServices services, KeyMonitor& keyMonitor,
                         std::shared_ptr<ContextCapture> context,
                         std::shared_ptr<WorkspaceFileService> workspace)
    : services_(std::move(services)),
      keyMonitor_(keyMonitor),
      capturer_(services_.dispatch, std::move(context), std::move(workspace), services_.manager),
      results_(services_),
      sender_(services_, results_),
      holdKey_(services_.dispatch, {.pressed = [this] { pressed(); },
                                    .confirmed = [this] { pressConfirmed(); },
                                    .discarded = [this] { discardRecording(); },
                                    .released = [this] { stopRecordingAndTranscribe(); }}) {
  services_.recorder.onInterrupted = lifetime_.guard([this](const std::string& line) {
    services_.mainWindow.updateStatus(line, StatusColor::orange);
  });
}

AppDelegate::~AppDelegate() { keyMonitor_.stop(); }

void AppDelegate::setupGlobalEventTap() {
  std::function<void(KeyEdge)> onEdge =
      lifetime_.guard([this](KeyEdge edge) { holdKey_.edge(edge); });
  const auto started = keyMonitor_.start(
      services_.holdKeyName, [main = services_.dispatch.mainQueue(), onEdge](KeyEdge edge) {
        main->post([onEdge, edge] { onEdge(edge); });
      });
  if (started)
    return services_.mainWindow.updateStatus(services_.readyText(), StatusColor::primary);
  services_.logger.print("❌ Key monitoring: " + started.error().description);
  services_.mainWindow.updateStatus("❌ Failed to setup key monitoring", StatusColor::red);
}

void AppDelegate::toggle() {
  holdKey_.edge(holdKey_.isDown() ? KeyEdge::holdUp : KeyEdge::holdDown);
}

void AppDelegate::cancel() {
  if (isRecording_ || isStartingRecording_) return discardRecording();
  for (const auto& request : services_.manager->getActiveRequests()) {
    services_.manager->cancelRequest(request->id());
  }
}

void AppDelegate::pressed() {
  if (onPress) onPress();
  startRecording();
}

void AppDelegate::startRecording() {
  if (isRecording_) return;
  if (isStartingRecording_) {
    services_.logger.print("⚠️ startRecording already in progress – ignoring duplicate");
    return;
  }
  if (!isAppReady) {
    services_.logger.print("⚠️ App not ready yet - ignoring recording request");
    services_.mainWindow.updateStatus("⏳ Still loading, please wait...", StatusColor::orange);
    return;
  }
  isStartingRecording_ = true;
  ++start_;
  capture_.reset();
  if (!services_.player.isPlaying()) return beginStart(false);
  services_.logger.print("🔇 Stopping TTS playback for new request");
  services_.player.stop();
  services_.dispatch.mainQueue()->postAfter(AudioPlayerService::pauseAfterStop,
                                            lifetime_.guard([this, start = start_] {
                                              if (start == start_) beginStart(true);
                                            }));
}

void AppDelegate::beginStart(bool replyWasStopped) {
  capture_ = capturer_.begin();
  capture_->onSnapshots = lifetime_.guard([this, weak = std::weak_ptr(capture_)] {
    if (const auto capture = weak.lock()) snapshotsArrived(*capture);
  });
  if (!replyWasStopped) return deferredStart(start_, false);
  services_.dispatch.mainQueue()->postAfter(
      pauseAfterReplyStopped,
      lifetime_.guard([this, start = start_] { deferredStart(start, true); }));
}

void AppDelegate::deferredStart(int start, bool replyWasStopped) {
  if (!holdKey_.isHeld() || !isStartingRecording_ || start != start_) {
    services_.logger.print("⚠️ Fn released before recording could start – aborting");
    if (start == start_) isStartingRecording_ = false;
    return;
  }
  startRecorder(start, [this, start, replyWasStopped](const Status& started) {
    if (started) return recordingStarted();
    if (!replyWasStopped) return recordingFailed(started.error(), "🎤 Recording error: ");
    // The sound server may still be busy with the end of the reply.
    services_.logger.print("🎤 Recording failed after TTS stop, retrying with engine reset...");
    services_.recorder.resetEngine();
    services_.dispatch.mainQueue()->postAfter(
        pauseAfterEngineReset, lifetime_.guard([this, start] { retryStart(start); }));
  });
}

void AppDelegate::retryStart(int start) {
  // A release in between has cancelled the start.
  if (start != start_ || !isStartingRecording_) return;
  startRecorder(start, [this](const Status& started) {
    if (started) return recordingStarted();
    recordingFailed(started.error(), "🎤 Recording error (retry): ");
  });
}

/// `then` runs unless the start has been given up before the microphone was open.
void AppDelegate::startRecorder(int start, std::function<void(const Status&)> then) {
  services_.recorder.startRecording(
      lifetime_.guard([this](float level) { services_.overlay.updateAudioLevel(level); }),
      lifetime_.guard([this, start, then = std::move(then)](const Status& started) {
        if (start == start_ && isStartingRecording_) return then(started);
        // A later press has the recorder already, or will have it.
        if (start != start_ || !started) return;
        services_.logger.print("⚠️ Fn released before recording could start – aborting");
        services_.recorder.stopRecordingWithPCM();
        services_.recorder.cleanup();
      }));
}

void AppDelegate::recordingStarted() {
  isStartingRecording_ = false;
  isRecording_ = true;
  services_.mainWindow.updateStatus("🔴 Recording...", StatusColor::red);
  setStatusIcon(StatusIcon::recording);
  if (holdKey_.isConfirmed()) services_.overlay.showRecording();
  // The snapshots may have been quicker than the microphone.
  if (capture_ && capture_->context) snapshotsArrived(*capture_);
}

void AppDelegate::recordingFailed(const Error& error, const std::string& logLabel) {
  isStartingRecording_ = false;
  services_.mainWindow.updateStatus("❌ Recording failed: " + error.description, StatusColor::red);
  services_.logger.print(logLabel + error.description);
}

void AppDelegate::pressConfirmed() {
  if (isRecording_) services_.overlay.showRecording();
}

/// The key was only tapped, or belonged to a chord: nothing was meant to be recorded.
void AppDelegate::discardRecording() {
  isStartingRecording_ = false;
  if (!isRecording_) return;
  isRecording_ = false;
  services_.recorder.stopRecordingWithPCM();
  services_.recorder.cleanup();
  setStatusIcon(StatusIcon::idle);
  services_.overlay.hideOverlay();
  services_.mainWindow.updateStatus(services_.readyText(), StatusColor::primary);
}

void AppDelegate::snapshotsArrived(const PressCapture& capture) {
  if (&capture != capture_.get() || !isRecording_) return;
  const int active = services_.manager->activeRequestCount();
  services_.mainWindow.updateStatus(
      "🔴 Recording in " + capture.context->appName + "..." +
          (active >= 1 ? " (" + std::to_string(active) + " active)" : ""),
      StatusColor::red);
}

void AppDelegate::stopRecordingAndTranscribe() {
  isStartingRecording_ = false;
  if (!isRecording_) return;
  auto pcm = services_.recorder.stopRecordingWithPCM().pcmData;
  isRecording_ = false;
  if (pcm.empty()) {
    setStatusIcon(StatusIcon::idle);
    services_.mainWindow.updateStatus("❌ No audio recorded", StatusColor::red);
    services_.overlay.hideOverlay();
    return services_.recorder.resetEngineInBackground();
  }
  services_.logger.log("Recording", LogLevel::info,
                       "Got " + std::to_string(pcm.size()) + " bytes PCM (" +
                           std::to_string(pcm.size() / 32000) + "s)");
  const int durationMs = services_.recorder.audioDurationMs();
  setStatusIcon(StatusIcon::idle);
  const auto capture = capture_;
  if (!capture || !capture->cursor) {
    services_.mainWindow.updateStatus("❌ No cursor context", StatusColor::red);
    services_.overlay.hideOverlay();
    // A program that answers late must not cost the user what was said.
    services_.undelivered.keepRecording(
        {services_.random.uuid(), services_.dispatch.clock().wallNow(), std::move(pcm),
         CapturedContext{.audioDurationMs = durationMs}, "No cursor context"});
    return services_.overlay.offerSendAgain();
  }
  if (capture->workspaceKnown) return sendRecording(capture, std::move(pcm), durationMs);
  capture->onWorkspaceKnown = lifetime_.guard(
      [this, weak = std::weak_ptr(capture), pcm = std::move(pcm), durationMs]() mutable {
        if (const auto held = weak.lock()) sendRecording(held, std::move(pcm), durationMs);
      });
}

void AppDelegate::sendRecording(const std::shared_ptr<PressCapture>& capture, Bytes pcm,
                                int durationMs) {
  auto context = *capture->context;
  context.audioDurationMs = durationMs;
  if (context.workspacePath) {
    services_.logger.log("Recording", LogLevel::info,
                         "IDE workspace: " + *context.workspacePath + " with " +
                             std::to_string(context.workspaceFiles.size()) + " files");
  }
  sender_.send({std::move(pcm), std::move(context), capture->cursor});
}

bool AppDelegate::retryUndelivered() {
  if (services_.undelivered.latestIsText()) {
    const auto text = services_.undelivered.takeLatestText();
    if (!text) return false;
    pasteText(text->text);
    return true;
  }
  auto recording = services_.undelivered.takeLatestRecording();
  if (!recording) return false;
  sendAgain(std::move(*recording));
  return true;
}

void AppDelegate::sendAgain(UndeliveredRecording recording) {
  std::function<void(std::shared_ptr<CursorContext>)> send = lifetime_.guard(
      [this, recording = std::move(recording)](const std::shared_ptr<CursorContext>& cursor) {
        if (cursor) return sender_.send({recording.pcm, recording.context, cursor});
        services_.undelivered.keepRecording(recording);
        services_.mainWindow.updateStatus("❌ No cursor context", StatusColor::red);
      });
  services_.dispatch.globalQueue()->post(
      [manager = services_.manager, main = services_.dispatch.mainQueue(), send] {
        main->post([send, cursor = manager->captureCursorContext()] { send(cursor); });
      });
}

void AppDelegate::setStatusIcon(StatusIcon icon) {
  statusIcon_ = icon;
  if (onChange) onChange();
}

}  // namespace kestrin
