#include "platform/audio/block_assembler.h"

#include <algorithm>

namespace kestrin {

BlockAssembler::BlockAssembler(AudioFormat format, int framesPerBlock, Sink sink)
    : format_(format),
      blockFrames_(size_t(std::max(1, framesPerBlock))),
      sink_(std::move(sink)),
      block_(blockFrames_ * size_t(format.channels)) {}

void BlockAssembler::push(const float* samples, size_t frames) {
  const auto channels = size_t(format_.channels);
  while (frames > 0) {
    const size_t taken = std::min(frames, blockFrames_ - filled_);
    float* target = block_.data() + filled_ * channels;
    if (samples) {
      std::copy_n(samples, taken * channels, target);
      samples += taken * channels;
    } else {
      std::fill_n(target, taken * channels, 0.0F);
    }
    filled_ += taken;
    frames -= taken;
    if (filled_ == blockFrames_) emit(filled_);
  }
}

void BlockAssembler::flush() {
  if (filled_ > 0) emit(filled_);
}

void BlockAssembler::emit(size_t frames) {
  filled_ = 0;
  if (sink_) sink_(block_.data(), int(frames), format_);
}

}  // namespace kestrin
