#include "dictation/recorder_engine.h"

#include <algorithm>

namespace kestrin {
namespace {

constexpr int tapFrames = 4096;

std::atomic<float> levelGain = 5.0F;

}  // namespace

void RecorderEngine::setLevelGain(float gain) { levelGain = gain; }

RecorderEngine::RecorderEngine(Dispatch& dispatch)
    : dispatch_(dispatch), pcm_(std::make_shared<PcmCollector>(dispatch)) {}

RecorderEngine::~RecorderEngine() { close(); }

CaptureOptions RecorderEngine::options(const std::string& device, uint64_t generation,
                                       Callbacks callbacks) const {
  CaptureOptions options;
  options.deviceId = device;
  options.framesPerBlock = tapFrames;
  options.onFirstData = [meter = meter_, &clock = dispatch_.clock()] {
    meter->firstSound = clock.steadyNow().sinceStart.count();
  };
  options.onBlock = [meter = meter_, pcm = pcm_, generation,
                     onLevel = std::move(callbacks.onLevel)](const float* samples, int frames,
                                                             const AudioFormat& format) {
    if (meter->generation != generation) return;
    if (meter->recording) {
      const float value = meanLevel(samples, frames, format.channels, levelGain);
      meter->level = 0.7F * meter->level + 0.3F * value;
      if (onLevel) onLevel(meter->level);
    }
    Bytes picked = pickSamples(samples, frames, format.channels, format.sampleRate);
    if (!picked.empty()) pcm->append(std::move(picked));
  };
  options.onStopped = [meter = meter_, generation,
                       onStopped = std::move(callbacks.onStopped)](AudioStop why) {
    meter->endedGeneration = generation;
    if (onStopped) onStopped(generation, why);
  };
  return options;
}

Status RecorderEngine::openRecording(Audio& audio, const std::string& device, SteadyTime pressed,
                                     Callbacks callbacks) {
  close();
  uint64_t generation = 0;
  {
    const std::lock_guard lock(mutex_);
    generation = nextGeneration();
    pcm_->keepAll(true);
    beginRecording(pressed);
  }
  auto capture = audio.capture(options(device, generation, std::move(callbacks)));
  if (!capture) {
    meter_->recording = false;
    pcm_->take();
    return fail(capture.error());
  }
  adopt(std::move(*capture), generation, false);
  return {};
}

Status RecorderEngine::openPreRoll(Audio& audio, const std::string& device, size_t bytes,
                                   Callbacks callbacks) {
  uint64_t generation = 0;
  {
    const std::lock_guard lock(mutex_);
    if (capture_ || meter_->recording) return {};
    generation = nextGeneration();
    pcm_->keepLast(bytes);
  }
  auto capture = audio.capture(options(device, generation, std::move(callbacks)));
  if (!capture) return fail(capture.error());
  adopt(std::move(*capture), generation, true);
  return {};
}

void RecorderEngine::adopt(std::unique_ptr<AudioCapture> capture, uint64_t generation,
                           bool preRoll) {
  const std::lock_guard lock(mutex_);
  if (meter_->generation == generation) {
    inputFormat_ = capture->format();
    capture_ = std::move(capture);
    preRoll_ = preRoll;
    ready_ = true;
  }
}

bool RecorderEngine::takeOverPreRoll(SteadyTime pressed) {
  const std::lock_guard lock(mutex_);
  if (!capture_ || !preRoll_ || meter_->endedGeneration == meter_->generation) return false;
  pcm_->keepAll(false);
  beginRecording(pressed);
  meter_->firstSound = meter_->started.load();
  return true;
}

uint64_t RecorderEngine::nextGeneration() { return ++meter_->generation; }

void RecorderEngine::beginRecording(SteadyTime pressed) {
  ++starts_;
  meter_->level = 0;
  meter_->firstSound = -1;
  meter_->started = pressed.sinceStart.count();
  meter_->recording = true;
}

Bytes RecorderEngine::finishRecording() {
  std::unique_ptr<AudioCapture> capture;
  {
    const std::lock_guard lock(mutex_);
    capture = std::move(capture_);
    preRoll_ = false;
    // One that is still being opened is not wanted any more.
    if (!capture) nextGeneration();
  }
  // Still the present capture while it stops: the partial block belongs to the recording.
  if (capture) capture->stop();
  meter_->recording = false;
  return pcm_->take();
}

void RecorderEngine::close() { detach().reset(); }

bool RecorderEngine::reset(std::optional<uint64_t> onlyIfStarts) {
  std::unique_ptr<AudioCapture> old;
  {
    const std::lock_guard lock(mutex_);
    if (onlyIfStarts && *onlyIfStarts != starts_) return false;
    nextGeneration();
    old = std::move(capture_);
    preRoll_ = ready_ = false;
    inputFormat_ = {};
    meter_->recording = false;
  }
  old.reset();
  pcm_->take();
  return true;
}

std::unique_ptr<AudioCapture> RecorderEngine::detach() {
  const std::lock_guard lock(mutex_);
  nextGeneration();
  preRoll_ = false;
  return std::move(capture_);
}

bool RecorderEngine::isRecording() const { return meter_->recording; }

bool RecorderEngine::isReady() const {
  const std::lock_guard lock(mutex_);
  return ready_;
}

bool RecorderEngine::hasPreRoll() const {
  const std::lock_guard lock(mutex_);
  return capture_ && preRoll_;
}

AudioFormat RecorderEngine::inputFormat() const {
  const std::lock_guard lock(mutex_);
  return inputFormat_;
}

void RecorderEngine::setInputFormat(const AudioFormat& format) {
  const std::lock_guard lock(mutex_);
  inputFormat_ = format;
  ready_ = format.sampleRate > 0 && format.channels > 0;
}

uint64_t RecorderEngine::starts() const {
  const std::lock_guard lock(mutex_);
  return starts_;
}

std::optional<Duration> RecorderEngine::firstSoundAfter() const {
  const int64_t first = meter_->firstSound;
  if (first < 0) return std::nullopt;
  return Duration(std::max<int64_t>(0, first - meter_->started));
}

}  // namespace kestrin
