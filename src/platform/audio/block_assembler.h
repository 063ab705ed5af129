#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "platform/audio.h"

namespace kestrin {

/// Turns a sound server's fragments, of whatever size, into blocks of exactly the size that the
/// client asked for. Allocates only when made, so that it can run on an audio thread. Not
/// thread-safe.
class BlockAssembler {
 public:
  using Sink = std::function<void(const float* samples, int frames, const AudioFormat&)>;

  BlockAssembler(AudioFormat format, int framesPerBlock, Sink sink);

  const AudioFormat& format() const { return format_; }
  /// `frames` frames of interleaved samples; null is silence of that length.
  void push(const float* samples, size_t frames);
  /// Hands out what is left, less than a block.
  void flush();

 private:
  void emit(size_t frames);

  AudioFormat format_;
  size_t blockFrames_;
  Sink sink_;
  std::vector<float> block_;
  size_t filled_ = 0;  ///< frames
};

}  // namespace kestrin
