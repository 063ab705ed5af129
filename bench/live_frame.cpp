// What a block of the microphone costs the audio thread during a session: 4096 frames at 48 kHz.
// The floor is the copy alone, into memory that is there. A pass of the segmentation empties the
// ring beside it, as often as in a session.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "liveassist/channel_frames.h"
#include "platform/dispatch/threads.h"

using namespace kestrin;
using Steady = std::chrono::steady_clock;

namespace {

constexpr int blocks = 20'000;
constexpr int blockFrames = 4096;
/// 300 ms of sound.
constexpr int blocksBetweenPasses = 4;

struct Figures {
  double median, late;
};

/// Microseconds a call.
Figures measure(const std::function<void()>& call, const std::function<void()>& between) {
  std::vector<double> times;
  for (int i = 0; i < blocks; ++i) {
    const auto start = Steady::now();
    call();
    times.push_back(std::chrono::duration<double, std::micro>(Steady::now() - start).count());
    if (i % blocksBetweenPasses == 0) between();
  }
  std::sort(times.begin(), times.end());
  return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

}  // namespace

int main() {
  const auto dispatch = ThreadsDispatch::make();
  NotificationCenter notifications;
  Logger logger(*dispatch, notifications);
  const LAVADConfig config;
  const auto microphone = std::make_shared<MicrophoneDetector>(config);
  const auto segmenter = std::make_shared<AudioSegmenter>(*dispatch, logger, config, microphone,
                                                          std::make_shared<SystemDetector>(config),
                                                          [](LAAudioChannel, const Bytes&) {});
  std::vector<float> block(blockFrames);
  for (int i = 0; i < blockFrames; ++i) block[size_t(i)] = float(0.1 * std::sin(i * 0.05));
  const auto handle = microphoneFrames(dispatch->clock(), logger, microphone, segmenter);

  std::vector<float> ring(size_t(1) << 19);
  size_t at = 0;
  const auto floor = measure(
      [&] {
        std::memcpy(ring.data() + at, block.data(), blockFrames * sizeof(float));
        at = (at + blockFrames) % (ring.size() - blockFrames);
      },
      [] {});
  const auto ours = measure(
      [&] {
        handle(block.data(), blockFrames, {48000, 1});
      },
      [&] {
        segmenter->process();
        segmenter->drain();
        segmenter->release(LAAudioChannel::microphone);
      });
  std::printf("floor %.2f / %.2f us   ours %.2f / %.2f us   (median / 99th, aim 20)\n",
              floor.median, floor.late, ours.median, ours.late);
  dispatch->shutDown();
  return 0;
}
