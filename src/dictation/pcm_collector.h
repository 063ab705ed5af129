#pragma once

#include <memory>
#include <string_view>

#include "platform/bytes.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// One level from the audio thread: the mean of the first channel's absolute values times `gain`,
/// at most 1.
float meanLevel(const float* samples, int frames, int channels, float gain);

/// 16 kHz signed 16-bit samples of the first channel by picking, not filtering: cheap enough for
/// the audio thread, and recognisers do not mind.
Bytes pickSamples(const float* samples, int frames, int channels, int sampleRate);

/// The PCM of one recording, owned by the queue "com.kestrin.pcmdata". While no recording runs it
/// may hold the most recent sound instead, so that a recording can begin before its key was
/// pressed. Thread-safe.
class PcmCollector : public std::enable_shared_from_this<PcmCollector> {
 public:
  explicit PcmCollector(Dispatch& dispatch);

  // These take effect in the order of the calls, and never wait:

  void append(Bytes pcm);
  /// Forgets everything and keeps just the last `bytes` of what comes.
  void keepLast(size_t bytes);
  /// Keeps everything that comes, after what was kept before or (`fresh`) from nothing.
  void keepAll(bool fresh);

  /// Takes what is there and keeps nothing of what still comes. Waits for its turn on the queue.
  Bytes take();

 private:
  const QueueRef queue_;
  Bytes data_;
  size_t limit_ = 0;
};

}  // namespace kestrin
