#include "liveassist/audio_segmenter.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Audio";
/// A talker without pause is cut when the speech is this old...
constexpr double longSpeech = 4.0;
/// ...or the last segment is.
constexpr double longSinceMicSegment = 5.0;
constexpr double longSinceSystemSegment = 4.0;

double secondsBetween(SteadyTime earlier, SteadyTime later) {
  return std::chrono::duration<double>(later - earlier).count();
}

bool isOld(const std::optional<SteadyTime>& time, double seconds, SteadyTime now) {
  return time && secondsBetween(*time, now) >= seconds;
}

}  // namespace

bool InFlightGuard::isTaken() const {
  const std::lock_guard lock(mutex_);
  return since_.has_value();
}

void InFlightGuard::take(SteadyTime now) {
  const std::lock_guard lock(mutex_);
  since_ = now;
}

void InFlightGuard::release() {
  const std::lock_guard lock(mutex_);
  since_.reset();
}

bool InFlightGuard::releaseIfOlder(double seconds, SteadyTime now) {
  const std::lock_guard lock(mutex_);
  if (!since_ || secondsBetween(*since_, now) <= seconds) return false;
  since_.reset();
  return true;
}

AudioSegmenter::AudioSegmenter(Dispatch& dispatch, Logger& logger, const LAVADConfig& config,
                               std::shared_ptr<MicrophoneDetector> microphone,
                               std::shared_ptr<SystemDetector> system, OnSegment onSegment)
    : dispatch_(dispatch),
      logger_(logger),
      config_(config),
      microphone_(std::move(microphone)),
      system_(std::move(system)),
      onSegment_(std::move(onSegment)),
      bufferQueue_(dispatch.makeQueue("com.kestrin.audiobuffer")) {}

void AudioSegmenter::setSource(LAAudioChannel channel, std::function<Bytes()> source) {
  bufferQueue_->post([weak = weak_from_this(), channel, source = std::move(source)]() mutable {
    const auto self = weak.lock();
    if (!self) return;
    self->take(self->of(channel));
    self->of(channel).source = std::move(source);
  });
}

void AudioSegmenter::take(Channel& channel) {
  if (channel.source) channel.buffer += channel.source();
}

void AudioSegmenter::process() {
  bufferQueue_->post([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->pass();
  });
}

void AudioSegmenter::clear() {
  bufferQueue_->sync([this] {
    for (Channel& channel : channels_) {
      take(channel);
      channel.buffer.clear();
    }
  });
}

void AudioSegmenter::drain() {
  bufferQueue_->sync([] {});
}

void AudioSegmenter::release(LAAudioChannel channel) { of(channel).inFlight.release(); }

bool AudioSegmenter::isInFlight(LAAudioChannel channel) const {
  return of(channel).inFlight.isTaken();
}

void AudioSegmenter::reset() {
  for (Channel& channel : channels_) channel.inFlight.release();
  const std::lock_guard lock(mutex_);
  of(LAAudioChannel::microphone).lastSegmentTime.reset();
}

void AudioSegmenter::pass() {
  for (Channel& channel : channels_) take(channel);
  const SteadyTime now = dispatch_.clock().steadyNow();
  auto& microphone = of(LAAudioChannel::microphone);
  if (microphone.inFlight.releaseIfOlder(config_.micTranscribeTimeoutSec, now))
    logger_.log(source, LogLevel::warning,
                "⚠️ Mic transcription timed out — force-unlocking");
  if (!microphone.inFlight.isTaken() && microphoneIsDue(now)) {
    Bytes pcm = cut(LAAudioChannel::microphone, now);
    microphone_->segmentCut();
    logger_.log(source, LogLevel::info,
                "📤 Sending mic segment: " + std::to_string(pcm.size()) + " bytes (" +
                    text::fixed(double(pcm.size()) / segmentBytesPerSecond, 1) + "s)");
    onSegment_(LAAudioChannel::microphone, std::move(pcm));
  }
  if (!of(LAAudioChannel::system).inFlight.isTaken() && systemIsDue(now))
    onSegment_(LAAudioChannel::system, cut(LAAudioChannel::system, now));
}

bool AudioSegmenter::microphoneIsDue(SteadyTime now) {
  const auto voice = microphone_->state();
  const bool silent = !voice.micSpeechActive && voice.micSilenceFrames > config_.maxSilenceFrames;
  const bool paused = isOld(voice.micSilenceStartTime, config_.micSilenceThreshold, now);
  const bool aged = isOld(voice.micSpeechStartTime, longSpeech, now) ||
                    isOld(lastSegmentTime(LAAudioChannel::microphone), longSinceMicSegment, now);
  return isDue(of(LAAudioChannel::microphone).buffer.size(), silent || paused, aged);
}

bool AudioSegmenter::systemIsDue(SteadyTime now) {
  const auto voice = system_->state();
  const bool silent = !voice.systemSpeechActive &&
                      voice.systemSilenceFrameCount > config_.systemSilenceFramesForSegment;
  return isDue(of(LAAudioChannel::system).buffer.size(), silent,
               isOld(lastSegmentTime(LAAudioChannel::system), longSinceSystemSegment, now));
}

bool AudioSegmenter::isDue(size_t bytes, bool ended, bool aged) const {
  if (bytes >= config_.maxBufferSize) return true;
  if (bytes >= config_.idealBufferSize) return ended || aged;
  return bytes >= config_.minBufferSize && ended;
}

std::optional<SteadyTime> AudioSegmenter::lastSegmentTime(LAAudioChannel channel) const {
  const std::lock_guard lock(mutex_);
  return of(channel).lastSegmentTime;
}

Bytes AudioSegmenter::cut(LAAudioChannel channel, SteadyTime now) {
  Channel& state = of(channel);
  state.inFlight.take(now);
  const std::lock_guard lock(mutex_);
  state.lastSegmentTime = now;
  return std::exchange(state.buffer, {});
}

}  // namespace kestrin
