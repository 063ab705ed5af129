#include "liveassist/channel_frames.h"

#include <optional>
#include <utility>

#include "dictation/pcm_collector.h"
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

}  // namespace

CaptureLine::OnBlock microphoneFrames(Clock& clock, Logger& logger,
                                      std::shared_ptr<MicrophoneDetector> detector,
                                      std::shared_ptr<AudioSegmenter> segmenter) {
  // Touched on the buffer queue alone.
  auto converter = std::make_shared<std::optional<MicConverter>>();
  return [&clock, &logger, detector = std::move(detector), segmenter = std::move(segmenter),
          converter](const float* samples, int frames, const AudioFormat& format) {
    const SteadyTime now = clock.steadyNow();
    detector->noteBuffer(now);
    if (!samples || frames <= 0) return;
    const float rms = rootMeanSquare(samples, frames, format.channels);
    if (detector->heard(rms, now))
      logger.log(source, LogLevel::info, "🎤 Speech detected (RMS=" + text::fixed(rms, 4) + ")");
    logPeriodically(logger, rms, detector->state(),
                    segmenter->isInFlight(LAAudioChannel::microphone));
    std::vector<float> block(samples, samples + ptrdiff_t(frames) * format.channels);
    segmenter->append(LAAudioChannel::microphone, [converter, format, block = std::move(block)] {
      if (!*converter) converter->emplace(format);
      return (*converter)->convert(block);
    });
    detector->endSpeechIfSilent(now);
  };
}

CaptureLine::OnBlock systemFrames(QueueRef queue, std::shared_ptr<SystemDetector> detector,
                                  std::shared_ptr<AudioSegmenter> segmenter) {
  return
      [queue = std::move(queue), detector = std::move(detector), segmenter = std::move(segmenter)](
          const float* samples, int frames, const AudioFormat& format) {
        if (!samples || frames <= 0) return;
        std::vector<float> block(samples, samples + ptrdiff_t(frames) * format.channels);
        queue->post([detector, segmenter, frames, format, block = std::move(block)] {
          detector->heard(rootMeanSquare(block.data(), frames, format.channels));
          segmenter->append(LAAudioChannel::system,
                            [pcm = pickSamples(block.data(), frames, format.channels,
                                               format.sampleRate)] { return pcm; });
        });
      };
}

}  // namespace kestrin
