#pragma once

#include <vector>

#include "platform/audio.h"

namespace kestrin {

/// A microphone's blocks, at its own rate and channels, to 16 kHz mono 16-bit PCM: band-limited,
/// and without a seam between blocks (the sound comes a few milliseconds late for it). Not
/// thread-safe.
class MicConverter {
 public:
  explicit MicConverter(const AudioFormat& format);

  /// 16000 / rate x frames samples, rounded down, two bytes each; empty when that is none.
  Bytes convert(const std::vector<float>& interleaved);

 private:
  AudioFormat format_;
  size_t margin_;            ///< frames of context on either side of what is converted
  std::vector<float> tail_;  ///< the last two margins of what came before
};

}  // namespace kestrin
