#pragma once

#include <atomic>

#include "platform/audio/wav.h"
#include "platform/linux/pulse_capture.h"

namespace kestrin::pulse {

/// One sound on the default output. The volume is applied here rather than by the server, which may
/// tie a stream's volume to the whole device's.
class Playback final : public AudioPlayback {
 public:
  /// With the connection's lock held.
  static Result<std::unique_ptr<Playback>> open(std::shared_ptr<Connection> connection,
                                                wav::Sound sound, float volume,
                                                std::function<void(bool)> onEnd,
                                                std::shared_ptr<OwnOutput> ownOutput);
  ~Playback() override;
  void stop() override;
  void setVolume(float volume) override;

 private:
  Playback(std::shared_ptr<Connection> connection, wav::Sound sound, float volume,
           std::function<void(bool)> onEnd, std::shared_ptr<OwnOutput> ownOutput);
  Status connect();
  pa_stream_state_t state() const { return pa_stream_get_state(stream_); }
  void write(size_t bytes);
  void stateChanged();
  /// Ends once: tells `onEnd` when the sound ended by itself.
  void finished(bool completely);
  void release();

  std::shared_ptr<Connection> connection_;
  wav::Sound sound_;
  std::atomic<float> volume_;
  std::function<void(bool)> onEnd_;
  std::shared_ptr<OwnOutput> ownOutput_;
  Alarm overdue_;
  pa_stream* stream_ = nullptr;
  size_t written_ = 0;  ///< samples
  bool draining_ = false;
  bool running_ = false;
};

}  // namespace kestrin::pulse
