#include "liveassist/live_assist_audio_engine.h"

#include <utility>

#include "liveassist/audio_segmenter.h"
#include "liveassist/capture_line.h"
#include "liveassist/channel_frames.h"
#include "liveassist/microphone_reconnection.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr const char* source = "Audio";
constexpr int microphoneBlock = 4096;
/// 64 ms: the run of 19 quiet frames that ends a segment is a pause between sentences.
constexpr int systemBlock = 1024;
/// A microphone that opens and stays silent is the health check's business.
constexpr auto microphoneDeadline = 5s;
/// Where nothing plays some servers deliver nothing; that is no fault.
constexpr auto systemDeadline = 24h;

}  // namespace

LiveAssistAudioEngine::LiveAssistAudioEngine(Dispatch& dispatch, Audio& audio, Logger& logger,
                                             const LAVADConfig& config)
    : dispatch_(dispatch),
      logger_(logger),
      microphoneDetector_(std::make_shared<MicrophoneDetector>(config)),
      systemDetector_(std::make_shared<SystemDetector>(config)) {
  std::function<void(LAAudioChannel, Bytes)> deliverGuarded = lifetime_.guard(
      [this](LAAudioChannel channel, Bytes pcm) { deliver(channel, std::move(pcm)); });
  segmenter_ = std::make_shared<AudioSegmenter>(
      dispatch, logger, config, microphoneDetector_, systemDetector_,
      [main = dispatch.mainQueue(), deliverGuarded](LAAudioChannel channel, Bytes pcm) {
        main->post([deliverGuarded, channel, pcm = std::move(pcm)]() mutable {
          deliverGuarded(channel, std::move(pcm));
        });
      });

  const QueueRef openQueue = dispatch.makeQueue("com.kestrin.liveassist.capture");
  microphone_ = std::make_unique<CaptureLine>(
      dispatch, audio, openQueue,
      CaptureLine::Setup{.source = AudioSource::microphone,
                         .framesPerBlock = microphoneBlock,
                         .firstDataDeadline = microphoneDeadline,
                         .makeBlockHandler =
                             [&clock = dispatch.clock(), &logger, detector = microphoneDetector_,
                              segmenter = segmenter_] {
                               return microphoneFrames(clock, logger, detector, segmenter);
                             },
                         .onEnded =
                             [this](AudioStop why) {
                               if (why != AudioStop::noFirstData)
                                 reconnection_->configurationChanged();
                             },
                         .onDefaultChanged = [this] { reconnection_->configurationChanged(); }});
  system_ = std::make_unique<CaptureLine>(
      dispatch, audio, openQueue,
      CaptureLine::Setup{
          .source = AudioSource::systemAudio,
          .framesPerBlock = systemBlock,
          .firstDataDeadline = systemDeadline,
          .makeBlockHandler =
              [&clock = dispatch.clock(), &logger, detector = systemDetector_,
               segmenter = segmenter_] { return systemFrames(clock, logger, detector, segmenter); },
          .onEnded = {},
          .onDefaultChanged = {}});
  reconnection_ = std::make_unique<MicrophoneReconnection>(
      dispatch, logger,
      MicrophoneReconnection::Hooks{
          .isCapturing = [this] { return isCapturing_; },
          .startMicrophone = [this](auto done) { openMicrophone(std::move(done)); },
          .lastMicBufferTime = [this] { return microphoneDetector_->state().lastMicBufferTime; },
          .onCheck = [this] { checkDevices(); }});
}

LiveAssistAudioEngine::~LiveAssistAudioEngine() {
  microphone_->close();
  system_->close();
  // What still runs there uses the log.
  segmenter_->drain();
}

void LiveAssistAudioEngine::startCapture(std::function<void(const Status&)> completion) {
  if (isCapturing_) {
    startCompletions_.push_back(std::move(completion));
    return started({});
  }
  // A start that is under way answers both.
  startCompletions_.push_back(std::move(completion));
  if (startCompletions_.size() > 1) return;
  microphone_->close();
  system_->close();
  segmenter_->clear();
  openMicrophone([this](const Status& microphone) {
    if (!microphone) return started(microphone);
    openSystem([this](const Status& system) {
      if (!system) return started(system);
      isCapturing_ = true;
      segmentationTimer_ = dispatch_.every(dispatch_.mainQueue(), segmentationInterval,
                                           [segmenter = segmenter_] { segmenter->process(); });
      started({});
    });
  });
}

void LiveAssistAudioEngine::openMicrophone(std::function<void(const Status&)> done) {
  microphone_->open([this, done = std::move(done)](const CaptureLine::Opened& opened) {
    logger_.log(source, LogLevel::info,
                "🎤 Starting mic capture: " + std::to_string(opened.format.sampleRate) + "Hz, " +
                    std::to_string(opened.format.channels) + "ch");
    if (opened.format.sampleRate > 0)
      microphoneDetector_->noteBuffer(dispatch_.clock().steadyNow());
    if (opened.status) {
      reconnection_->watch();
      tellStarted(LAAudioChannel::microphone);
    }
    done(opened.status);
  });
}

void LiveAssistAudioEngine::openSystem(std::function<void(const Status&)> done) {
  system_->open([this, done = std::move(done)](const CaptureLine::Opened& opened) {
    if (opened.status) tellStarted(LAAudioChannel::system);
    done(opened.status);
  });
}

void LiveAssistAudioEngine::checkDevices() {
  microphone_->checkDefault();
  if (!systemIsLost_ && !system_->hasEnded()) return;
  if (system_->isOpening()) return;
  // The sound server went and came: the other side is heard again, without a limit of attempts.
  systemIsLost_ = true;
  openSystem([this](const Status& system) {
    if (!system) return;
    systemIsLost_ = false;
    logger_.log(source, LogLevel::info, "✅ System audio reconnected");
  });
}

void LiveAssistAudioEngine::stopCapture() {
  segmentationTimer_.reset();
  reconnection_->stop();
  microphone_->close();
  system_->close();
  systemIsLost_ = false;
  segmenter_->process();
  isCapturing_ = false;
  if (!startCompletions_.empty())
    started(fail("LiveAssist", startCancelled, "Capture was stopped before it had started"));
}

void LiveAssistAudioEngine::started(const Status& outcome) {
  // After the notices of the channels, which are on their way.
  dispatch_.mainQueue()->post(
      lifetime_.guard([completions = std::exchange(startCompletions_, {}), outcome] {
        for (const auto& completion : completions)
          if (completion) completion(outcome);
      }));
}

void LiveAssistAudioEngine::tellStarted(LAAudioChannel channel) {
  dispatch_.mainQueue()->post(lifetime_.guard([this, channel] {
    if (const auto receiver = delegate.lock()) receiver->didStartCapture(*this, channel);
  }));
}

void LiveAssistAudioEngine::deliver(LAAudioChannel channel, Bytes pcm) {
  if (const auto receiver = delegate.lock())
    receiver->didSegmentAudio(*this, std::move(pcm), channel);
}

void LiveAssistAudioEngine::resetState() {
  microphoneDetector_->reset();
  systemDetector_->reset();
  segmenter_->reset();
  reconnection_->resetCount();
}

void LiveAssistAudioEngine::markTranscriptionComplete(LAAudioChannel channel) {
  segmenter_->release(channel);
  if (channel == LAAudioChannel::microphone)
    logger_.log(source, LogLevel::info, "✅ Mic transcription complete — ready for next segment");
}

}  // namespace kestrin
