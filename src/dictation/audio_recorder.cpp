#include "dictation/audio_recorder.h"

#include <algorithm>

#include "dictation/audio_device_manager.h"
#include "platform/audio/wav.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr size_t pcmBytesPerSecond = wav::speechSampleRate * 2;
constexpr size_t preRollBytes =
    pcmBytesPerSecond * size_t(AudioRecorder::preRollLength.count()) / 1000;
/// A microphone that was just unplugged, or a server that restarts, needs a moment.
constexpr auto preRollRetryAfter = 2s;

bool isUsable(const AudioFormat& format) { return format.sampleRate > 0 && format.channels > 0; }

std::string secondsText(size_t bytes) { return text::fixed(double(bytes) / pcmBytesPerSecond, 1); }

std::string interruptionLine(AudioStop why) {
  switch (why) {
    case AudioStop::deviceGone:
      return "⚠️ Microphone disconnected - what you said until then is kept";
    case AudioStop::serverGone:
      return "⚠️ The sound server stopped - what you said until then is kept";
    case AudioStop::noFirstData:
      return "⚠️ The microphone delivers no sound";
  }
  return {};
}

/// The device of "pref_inputDevice"; empty is the default one.
std::string chosenDevice(Audio& audio, const SettingsStore& settings, Logger& logger) {
  const std::string name = settings.string("pref_inputDevice", "Default");
  if (name.empty() || name == "Default") return {};
  if (auto id = AudioDeviceManager(audio).findDeviceID(name)) return *id;
  logger.print("⚠️ Input device \"" + name + "\" not found - using the default");
  return {};
}

/// The chosen device, once its format is known and usable.
Result<std::string> usableDevice(RecorderEngine& engine, Audio& audio,
                                 const SettingsStore& settings, Logger& logger) {
  engine.close();
  std::string device = chosenDevice(audio, settings, logger);
  AudioFormat format = audio.inputFormat(device);
  if (!isUsable(format)) {
    logger.print("⚠️ Invalid format on existing engine, creating fresh engine...");
    format = audio.inputFormat(device);
  }
  engine.setInputFormat(format);
  if (isUsable(format)) return device;
  logger.print("⚠️ Invalid audio format even on fresh engine");
  // Without a server the microphone is not to blame.
  if (auto server = audio.available(); !server) return fail(server.error());
  return fail("AudioRecorder", 1,
              "Invalid audio format - microphone may be in use. Please try again.");
}

/// Runs on whichever queue the reset is wanted.
void resetAndTell(RecorderEngine& engine, Logger& logger, std::optional<uint64_t> onlyIfStarts) {
  if (onlyIfStarts && *onlyIfStarts != engine.starts()) return;
  logger.print("🔄 Resetting audio engine...");
  if (engine.reset(onlyIfStarts)) logger.print("✅ Audio engine reset complete");
}

}  // namespace

AudioRecorder::AudioRecorder(Dispatch& dispatch, Audio& audio, Files& files,
                             SettingsStore& settings, Logger& logger, PreRoll preRoll)
    : dispatch_(dispatch),
      audio_(audio),
      files_(files),
      settings_(settings),
      logger_(logger),
      preRoll_(preRoll),
      engineQueue_(dispatch.makeQueue("com.kestrin.audiorecorder.engine")),
      engine_(std::make_shared<RecorderEngine>(dispatch)) {
  auto changed = lifetime_.guard([this] {
    // Another microphone may be meant: the next one is opened afresh.
    if (!isRecording()) engine_->close();
    setPreRollActive(engine_->hasPreRoll());
    refreshPreRoll();
  });
  settingsObserver_ =
      settings_.observe([main = dispatch_.mainQueue(), changed](const std::string& key) {
        if (key == "pref_preRoll" || key == "pref_inputDevice") main->post(changed);
      });
  prepareEngine();
}

AudioRecorder::~AudioRecorder() {
  engine_->close();
  // What still runs there uses the ports.
  engineQueue_->sync([] {});
}

void AudioRecorder::retire(std::unique_ptr<AudioRecorder> recorder) {
  if (!recorder) return;
  // What fires on the main queue must end here.
  recorder->lifetime_.end();
  recorder->preRollTimer_.reset();
  recorder->settingsObserver_.reset();
  const auto global = recorder->dispatch_.globalQueue();
  global->post([retired = std::shared_ptr<AudioRecorder>(std::move(recorder))] {});
}

void AudioRecorder::applyPreferences(const SettingsStore& settings) {
  const double sensitivity = std::clamp(settings.number("pref_inputSensitivity", 50), 0.0, 100.0);
  RecorderEngine::setLevelGain(float(sensitivity / 100 * 6 + 2));
}

void AudioRecorder::prepareEngine() {
  auto found = lifetime_.guard([this](const AudioFormat& format) { formatFound(format); });
  engineQueue_->post([found, main = dispatch_.mainQueue(), &audio = audio_, &settings = settings_,
                      &logger = logger_] {
    const AudioFormat format = audio.inputFormat(chosenDevice(audio, settings, logger));
    if (!isUsable(format)) logger.print("⚠️ Audio format not ready, will retry on recording");
    main->post([found, format]() mutable { found(format); });
  });
}

void AudioRecorder::formatFound(const AudioFormat& format) {
  if (isUsable(format) && !isRecording()) engine_->setInputFormat(format);
  refreshPreRoll();
}

RecorderEngine::Callbacks AudioRecorder::callbacks() {
  auto level = lifetime_.guard([this](float value) {
    if (onLevel_) onLevel_(value);
  });
  auto stopped = lifetime_.guard(
      [this](uint64_t generation, AudioStop why) { captureStopped(generation, why); });
  const QueueRef main = dispatch_.mainQueue();
  return {[main, level](float value) { main->post([level, value]() mutable { level(value); }); },
          [main, stopped](uint64_t generation, AudioStop why) {
            main->post([stopped, generation, why]() mutable { stopped(generation, why); });
          }};
}

struct AudioRecorder::Opening {
  SteadyTime began;
  Status outcome;
  std::function<void(const Status&)> completion;
};

void AudioRecorder::startRecording(std::function<void(float)> onLevel,
                                   std::function<void(const Status&)> completion) {
  // A start that is still under way was given up by its caller: this one takes over.
  if (isRecording() && pendingStarts_ == 0) {
    logger_.print("⚠️ startRecording called while already recording – ignoring");
    return;
  }
  ++pendingStarts_;
  const SteadyTime pressed = dispatch_.clock().steadyNow();
  onLevel_ = std::move(onLevel);
  std::function<void(const Opening&)> opened =
      lifetime_.guard([this](const Opening& opening) { recordingOpened(opening); });
  if (engine_->takeOverPreRoll(pressed)) return opened({pressed, {}, std::move(completion)});
  engineQueue_->post([opened, completion = std::move(completion), pressed, engine = engine_,
                      callbacks = callbacks(), main = dispatch_.mainQueue(), &dispatch = dispatch_,
                      &audio = audio_, &settings = settings_, &logger = logger_] {
    Opening opening{{}, {}, completion};
    const auto device = usableDevice(*engine, audio, settings, logger);
    opening.began = dispatch.clock().steadyNow();
    opening.outcome = device ? engine->openRecording(audio, *device, pressed, callbacks)
                             : Status(fail(device.error()));
    main->post([opened, opening] { opened(opening); });
  });
}

void AudioRecorder::recordingOpened(const Opening& opening) {
  --pendingStarts_;
  if (opening.outcome) {
    recordingStartTime_ = opening.began;
    const AudioFormat format = engine_->inputFormat();
    logger_.print(std::string("🎙️ Recording started (PCM-only mode: ") +
                  (pcmOnlyMode ? "true" : "false") + ")");
    logger_.print("🎙️ Input format: " + std::to_string(format.sampleRate) + " Hz, " +
                  std::to_string(format.channels) +
                  (format.channels > 1 ? " channels" : " channel"));
  }
  if (opening.completion) opening.completion(opening.outcome);
}

Bytes AudioRecorder::endRecording() {
  Bytes pcm = engine_->finishRecording();
  if (recordingStartTime_) {
    const Duration length = dispatch_.clock().steadyNow() - *recordingStartTime_;
    audioDurationMs_ = int(length / 1ms);
  }
  setPreRollActive(false);
  refreshPreRoll();
  return pcm;
}

AudioRecorder::Recording AudioRecorder::stopRecordingWithPCM() {
  if (!isRecording()) {
    logger_.print("⚠️ stopRecordingWithPCM called but not recording");
    return {};
  }
  Recording recording;
  recording.pcmData = endRecording();
  if (!recording.pcmData.empty()) {
    consecutiveFailures_ = 0;
    logger_.print("🎤 PCM data size: " + std::to_string(recording.pcmData.size()) + " bytes (" +
                  secondsText(recording.pcmData.size()) + "s at 16kHz)");
  } else {
    ++consecutiveFailures_;
    logger_.print("⚠️ Empty PCM data - failure count: " + std::to_string(consecutiveFailures_));
    if (consecutiveFailures_ >= maxConsecutiveFailures) {
      logger_.print("🔄 Max failures reached, scheduling engine reset");
      resetEngineInBackground();
    }
  }
  if (!pcmOnlyMode) recording.url = writeFile(recording.pcmData);
  return recording;
}

std::optional<std::string> AudioRecorder::stopRecording() {
  if (!isRecording()) return std::nullopt;
  const Bytes pcm = endRecording();
  return pcmOnlyMode ? std::nullopt : writeFile(pcm);
}

std::optional<std::string> AudioRecorder::writeFile(const Bytes& pcm) {
  const std::string path =
      files_.runtimeFolder() + "/kestrin/recording-" + std::to_string(engine_->starts()) + ".wav";
  if (auto written = files_.writeAtomic(path, wav::write(pcm)); !written) {
    logger_.print("⚠️ Recording file could not be written: " + written.error().description);
    return std::nullopt;
  }
  tempFileURL_ = path;
  return path;
}

void AudioRecorder::resetEngine() {
  resetAndTell(*engine_, logger_, std::nullopt);
  dispatch_.mainQueue()->post(lifetime_.guard([this] {
    setPreRollActive(engine_->hasPreRoll());
    refreshPreRoll();
  }));
}

void AudioRecorder::resetEngineInBackground() {
  auto done = lifetime_.guard([this] {
    setPreRollActive(engine_->hasPreRoll());
    refreshPreRoll();
  });
  dispatch_.globalQueue()->post([engine = engine_, &logger = logger_, main = dispatch_.mainQueue(),
                                 done, starts = engine_->starts()] {
    resetAndTell(*engine, logger, starts);
    main->post(done);
  });
}

void AudioRecorder::cleanup() {
  if (!tempFileURL_) return;
  (void)files_.remove(*tempFileURL_);
  tempFileURL_.reset();
}

void AudioRecorder::captureStopped(uint64_t generation, AudioStop why) {
  if (generation != engine_->generation()) return;
  if (isRecording()) {
    const std::string line = interruptionLine(why);
    logger_.print(line);
    if (onInterrupted) onInterrupted(line);
    return;
  }
  engine_->close();
  preRollTried(false);
}

bool AudioRecorder::wantsPreRoll() const {
  return preRoll_ == PreRoll::bySetting && settings_.boolean("pref_preRoll");
}

void AudioRecorder::refreshPreRoll() {
  if (isRecording() || engine_->hasPreRoll() || !wantsPreRoll()) return;
  auto tried = lifetime_.guard([this](bool opened) { preRollTried(opened); });
  engineQueue_->post([tried, engine = engine_, main = dispatch_.mainQueue(),
                      callbacks = callbacks(), &audio = audio_, &settings = settings_,
                      &logger = logger_] {
    const auto opened =
        engine->openPreRoll(audio, chosenDevice(audio, settings, logger), preRollBytes, callbacks);
    main->post([tried, ok = opened.has_value()]() mutable { tried(ok); });
  });
}

void AudioRecorder::preRollTried(bool opened) {
  const bool wanted = wantsPreRoll();
  if (!wanted && engine_->hasPreRoll() && !isRecording()) engine_->close();
  setPreRollActive(engine_->hasPreRoll());
  if (wanted && !opened)
    preRollTimer_ = dispatch_.after(dispatch_.mainQueue(), preRollRetryAfter,
                                    lifetime_.guard([this] { refreshPreRoll(); }));
}

void AudioRecorder::setPreRollActive(bool active) {
  if (std::exchange(preRollActive_, active) != active && onPreRollChanged) onPreRollChanged();
}

}  // namespace kestrin
