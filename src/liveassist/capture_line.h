#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "platform/audio.h"
#include "platform/lifetime.h"

namespace kestrin {

/// One of the two captures: opens it on a queue where waiting is allowed, and forgets what a
/// capture that is no longer wanted still gives. Main queue only, apart from the block handlers.
class CaptureLine {
 public:
  /// On the audio thread.
  using OnBlock = std::function<void(const float* samples, int frames, const AudioFormat&)>;

  struct Setup {
    AudioSource source = AudioSource::microphone;
    int framesPerBlock = 4096;
    Duration firstDataDeadline = std::chrono::seconds(2);
    /// Makes the block handler of each capture anew.
    std::function<OnBlock()> makeBlockHandler;
    /// The capture ended by itself. Main queue.
    std::function<void(AudioStop)> onEnded;
    /// Another device is the default one now. Main queue.
    std::function<void()> onDefaultChanged;
  };

  struct Opened {
    Status status;
    AudioFormat format;         ///< microphone: what was found, also when it is unusable
    std::string defaultDevice;  ///< microphone: at the time of opening
    std::shared_ptr<AudioCapture> capture;
  };

  CaptureLine(Dispatch& dispatch, Audio& audio, QueueRef openQueue, Setup setup);
  ~CaptureLine();

  /// Closes what is open and opens the default device. `done` runs on the main queue, unless the
  /// line is closed or opened again meanwhile.
  void open(std::function<void(const Opened&)> done);
  /// What was heard until now has gone to the block handler when this returns; nothing follows.
  void close();
  bool isOpening() const { return isOpening_; }
  /// It was open, and ended by itself.
  bool hasEnded() const { return hasEnded_; }
  /// Asks in the background whether the microphone is still the default one.
  void checkDefault();

 private:
  CaptureOptions options(uint64_t number);
  void opened(uint64_t number, Opened& result, const std::function<void(const Opened&)>& done);
  void ended(uint64_t number, AudioStop why);
  void defaultFound(uint64_t number, const std::string& device);

  Dispatch& dispatch_;
  Audio& audio_;
  const QueueRef openQueue_;
  const Setup setup_;
  std::shared_ptr<AudioCapture> capture_;
  std::string device_;
  bool isOpening_ = false;
  bool hasEnded_ = false;
  /// Of the capture that is wanted; read on the audio thread.
  const std::shared_ptr<std::atomic<uint64_t>> number_ = std::make_shared<std::atomic<uint64_t>>(0);
  Lifetime lifetime_;
};

}  // namespace kestrin
