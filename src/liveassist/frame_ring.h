#pragma once

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <optional>
#include <vector>

#include "platform/audio.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// Blocks of sound on their way from the audio thread to a queue. Everything is allocated when it
/// is made, and no side ever waits for the other: one thread writes, one queue reads.
class FrameRing {
 public:
  struct Block {
    AudioFormat format;
    int frames = 0;
    SteadyTime time;             ///< when it was written
    std::vector<float> samples;  ///< interleaved
  };

  /// `samples`: how many it holds, of all channels together.
  explicit FrameRing(size_t samples = 1 << 19) : samples_(samples), heads_(blocks) {}

  /// Audio thread. False when there is no room; the block is lost then, and counted.
  bool write(const float* samples, int frames, const AudioFormat& format, SteadyTime now) {
    const auto count = size_t(frames) * size_t(format.channels);
    if (samples_.write_available() < count || heads_.write_available() == 0) {
      lost_.fetch_add(1, std::memory_order_relaxed);
      return false;
    }
    samples_.push(samples, count);
    return heads_.push({format, frames, now});
  }

  /// The reading queue. The oldest block; its memory may be that of the one before.
  bool read(Block& block) {
    Head head;
    if (!heads_.pop(head)) return false;
    block.format = head.format;
    block.frames = head.frames;
    block.time = head.time;
    block.samples.resize(size_t(head.frames) * size_t(head.format.channels));
    samples_.pop(block.samples.data(), block.samples.size());
    return true;
  }

  /// How many blocks found no room since the last call.
  int takeLost() { return lost_.exchange(0); }

 private:
  static constexpr size_t blocks = 4096;
  struct Head {
    AudioFormat format;
    int frames = 0;
    SteadyTime time;
  };
  boost::lockfree::spsc_queue<float> samples_;
  boost::lockfree::spsc_queue<Head> heads_;
  std::atomic<int> lost_ = 0;
};

}  // namespace kestrin
