#include "liveassist/channel_frames.h"

#include <optional>
#include <utility>

#include "dictation/pcm_collector.h"
#include "liveassist/frame_ring.h"
#include "liveassist/mic_converter.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "Audio";
constexpr int framesBetweenLines = 500;

void logPeriodically(Logger& logger, float rms, const MicrophoneDetector::State& state,
                     bool transcribing) {
  if (state.debugMicFrameCount % framesBetweenLines != 0) return;
  logger.log(source, LogLevel::debug,
             "🎤 Mic frame " + std::to_string(state.debugMicFrameCount) + ": RMS=" +
                 text::fixed(rms, 5) + ", speech=" + (state.micSpeechActive ? "true" : "false") +
                 ", silence=" + std::to_string(state.micSilenceFrames) +
                 ", transcribing=" + (transcribing ? "true" : "false"));
}

/// Reads what the ring holds, block by block.
Bytes drain(FrameRing& ring, Logger& logger, FrameRing::Block& block,
            const std::function<Bytes(const FrameRing::Block&)>& take) {
  Bytes pcm;
  while (ring.read(block)) pcm += take(block);
  if (const int lost = ring.takeLost(); lost > 0) {
    logger.log(
        source, LogLevel::warning,
        "⚠️ " + std::to_string(lost) + " blocks of sound came faster than they were read");
  }
  return pcm;
}

bool holdsSound(const float* samples, int frames, const AudioFormat& format) {
  return samples && frames > 0 && format.channels > 0;
}

}  // namespace

CaptureLine::OnBlock microphoneFrames(Clock& clock, Logger& logger,
                                      std::shared_ptr<MicrophoneDetector> detector,
                                      const std::shared_ptr<AudioSegmenter>& segmenter) {
  auto ring = std::make_shared<FrameRing>();
  const auto take =
      [&logger, detector, guard = std::weak_ptr(segmenter),
       converter = std::make_shared<std::optional<MicConverter>>()](const FrameRing::Block& block) {
        const float rms = rootMeanSquare(block.samples.data(), block.frames, block.format.channels);
        if (detector->heard(rms, block.time))
          logger.log(source, LogLevel::info, "🎤 Speech detected (RMS=" + text::fixed(rms, 4) + ")");
        const auto segments = guard.lock();
        logPeriodically(logger, rms, detector->state(),
                        segments && segments->isInFlight(LAAudioChannel::microphone));
        detector->endSpeechIfSilent(block.time);
        if (!*converter) converter->emplace(block.format);
        return (*converter)->convert(block.samples);
      };
  segmenter->setSource(LAAudioChannel::microphone,
                       [ring, &logger, take, block = FrameRing::Block()]() mutable {
                         return drain(*ring, logger, block, take);
                       });
  return [&clock, detector = std::move(detector), ring](const float* samples, int frames,
                                                        const AudioFormat& format) {
    const SteadyTime now = clock.steadyNow();
    detector->noteBuffer(now);
    if (holdsSound(samples, frames, format)) ring->write(samples, frames, format, now);
  };
}

CaptureLine::OnBlock systemFrames(Clock& clock, Logger& logger,
                                  std::shared_ptr<SystemDetector> detector,
                                  const std::shared_ptr<AudioSegmenter>& segmenter) {
  auto ring = std::make_shared<FrameRing>();
  const auto take = [detector = std::move(detector)](const FrameRing::Block& block) {
    detector->heard(rootMeanSquare(block.samples.data(), block.frames, block.format.channels));
    return pickSamples(block.samples.data(), block.frames, block.format.channels,
                       block.format.sampleRate);
  };
  segmenter->setSource(LAAudioChannel::system,
                       [ring, &logger, take, block = FrameRing::Block()]() mutable {
                         return drain(*ring, logger, block, take);
                       });
  return [&clock, ring](const float* samples, int frames, const AudioFormat& format) {
    if (holdsSound(samples, frames, format))
      ring->write(samples, frames, format, clock.steadyNow());
  };
}

}  // namespace kestrin
