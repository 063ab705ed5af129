#include "cli/recorded_audio.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/audio/block_assembler.h"

namespace kestrin::cli {

/// One open capture.
struct CaptureState {
  CaptureState(CaptureOptions o, AudioFormat format)
      : options(std::move(o)), blocks(format, options.framesPerBlock, options.onBlock) {}

  void add(const std::vector<float>& samples) {
    const std::lock_guard lock(mutex);
    if (stopped) return;
    if (const auto first = std::exchange(options.onFirstData, nullptr)) first();
    blocks.push(samples.data(), samples.size());
  }
  void stop() {
    const std::lock_guard lock(mutex);
    if (!std::exchange(stopped, true)) blocks.flush();
  }

  CaptureOptions options;
  BlockAssembler blocks;
  std::mutex mutex;
  bool stopped = false;
};

class RecordedAudio::Capture final : public AudioCapture {
 public:
  explicit Capture(std::shared_ptr<CaptureState> state) : state_(std::move(state)) {}
  ~Capture() override { state_->stop(); }
  AudioFormat format() const override { return state_->blocks.format(); }
  void stop() override { state_->stop(); }

 private:
  const std::shared_ptr<CaptureState> state_;
};

RecordedAudio::RecordedAudio(std::vector<float> microphone, int microphoneRate,
                             std::vector<float> system) {
  tracks_[0] = {std::move(microphone), microphoneRate, 0, {}};
  tracks_[1] = {std::move(system), wav::speechSampleRate, 0, {}};
}

Duration RecordedAudio::length() const {
  double seconds = 0;
  for (const Track& track : tracks_) {
    seconds = std::max(seconds, double(track.samples.size()) / track.rate);
  }
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

Result<std::unique_ptr<AudioCapture>> RecordedAudio::capture(CaptureOptions options) {
  const std::lock_guard lock(mutex_);
  Track& track = tracks_[options.source == AudioSource::microphone ? 0 : 1];
  auto state = std::make_shared<CaptureState>(std::move(options), AudioFormat{track.rate, 1});
  track.capture = state;
  return std::make_unique<Capture>(std::move(state));
}

void RecordedAudio::deliver(Duration time) {
  const double seconds = std::chrono::duration<double>(time).count();
  for (Track& track : tracks_) {
    std::shared_ptr<CaptureState> capture;
    std::vector<float> stretch(size_t(std::lround(seconds * track.rate)), 0.0F);
    {
      const std::lock_guard lock(mutex_);
      capture = track.capture.lock();
      const size_t there = std::min(stretch.size(), track.samples.size() - track.at);
      std::copy_n(track.samples.begin() + std::ptrdiff_t(track.at), there, stretch.begin());
      track.at += there;
    }
    if (capture) capture->add(stretch);
  }
}

}  // namespace kestrin::cli
