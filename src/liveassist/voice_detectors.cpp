#include "liveassist/voice_detectors.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace kestrin {
namespace {

/// A quieter system frame is never speech, however quiet the frames before it were.
constexpr float systemFloor = 0.003F;
constexpr float leastAdaptiveThreshold = 0.005F;
constexpr float shareOfMean = 0.4F;

}  // namespace

float rootMeanSquare(const float* samples, int frames, int channels) {
  if (!samples || frames <= 0) return 0;
  float sum = 0;
  for (int frame = 0; frame < frames; ++frame) {
    const float sample = samples[frame * channels];
    sum += sample * sample;
  }
  const float rms = std::sqrt(sum / float(frames));
  return std::isfinite(rms) ? rms : 0;
}

MicrophoneDetector::State MicrophoneDetector::state() const {
  const std::lock_guard lock(mutex_);
  State state = state_;
  if (const Duration last = lastBuffer_; last != never) state.lastMicBufferTime = SteadyTime{last};
  return state;
}

void MicrophoneDetector::noteBuffer(SteadyTime now) { lastBuffer_ = now.sinceStart; }

bool MicrophoneDetector::heard(float rms, SteadyTime now) {
  const std::lock_guard lock(mutex_);
  ++state_.debugMicFrameCount;
  if (!(rms > config_.micVADThreshold)) {
    ++state_.micSilenceFrames;
    return false;
  }
  state_.micSilenceFrames = 0;
  if (state_.micSpeechActive) return false;
  state_.micSpeechActive = true;
  state_.micSpeechStartTime = now;
  return true;
}

void MicrophoneDetector::endSpeechIfSilent(SteadyTime now) {
  const std::lock_guard lock(mutex_);
  if (!state_.micSpeechActive || state_.micSilenceFrames <= config_.maxSilenceFrames) return;
  state_.micSpeechActive = false;
  state_.micSilenceStartTime = now;
}

void MicrophoneDetector::segmentCut() {
  const std::lock_guard lock(mutex_);
  state_.micSilenceStartTime.reset();
}

void MicrophoneDetector::reset() {
  const std::lock_guard lock(mutex_);
  state_.micSpeechActive = false;
  state_.micSilenceFrames = 0;
  state_.debugMicFrameCount = 0;
  lastBuffer_ = never;
}

SystemDetector::State SystemDetector::state() const {
  const std::lock_guard lock(mutex_);
  return state_;
}

void SystemDetector::heard(float rms) {
  const std::lock_guard lock(mutex_);
  systemEnergyHistory_.push_back(rms);
  if (systemEnergyHistory_.size() > config_.energyHistorySize) systemEnergyHistory_.pop_front();
  const float mean =
      std::accumulate(systemEnergyHistory_.begin(), systemEnergyHistory_.end(), 0.0F) /
      float(systemEnergyHistory_.size());
  state_.systemAdaptiveThreshold = std::max(shareOfMean * mean, leastAdaptiveThreshold);
  if (rms > systemFloor && rms > state_.systemAdaptiveThreshold) {
    state_.systemSilenceFrameCount = 0;
    state_.systemSpeechActive = true;
    return;
  }
  ++state_.systemSilenceFrameCount;
  if (state_.systemSilenceFrameCount > config_.systemSilenceFramesForSegment)
    state_.systemSpeechActive = false;
}

void SystemDetector::reset() {
  const std::lock_guard lock(mutex_);
  state_.systemSpeechActive = false;
  state_.systemSilenceFrameCount = 0;
  systemEnergyHistory_.clear();
}

}  // namespace kestrin
