#pragma once

#include <atomic>
#include <memory>

#include "platform/audio/block_assembler.h"
#include "platform/linux/pulse_connection.h"

namespace kestrin::pulse {

/// How many of our own sounds play now: what the system plays is captured without them.
class OwnOutput {
 public:
  void began() { ++playing_; }
  void ended() {
    quietSince_ = pa_rtclock_now();
    --playing_;
  }
  /// A capture lags behind the speakers by its fragment, so it stays deaf a little longer.
  bool audible() const {
    return playing_ > 0 || (quietSince_ > 0 && pa_rtclock_now() < quietSince_ + tail);
  }

 private:
  static constexpr pa_usec_t tail = 150 * PA_USEC_PER_MSEC;
  std::atomic<int> playing_ = 0;
  std::atomic<pa_usec_t> quietSince_ = 0;
};

/// A record stream that ends rather than moves to another source: an unplugged microphone must
/// never be continued with what the speakers play.
class Capture final : public AudioCapture {
 public:
  /// With the connection's lock held. `ownOutput` is null for a microphone.
  static Result<std::unique_ptr<Capture>> open(std::shared_ptr<Connection> connection,
                                               const std::string& source, AudioFormat format,
                                               CaptureOptions options,
                                               std::shared_ptr<OwnOutput> ownOutput);
  ~Capture() override;
  AudioFormat format() const override { return blocks_.format(); }
  void stop() override;

 private:
  Capture(std::shared_ptr<Connection> connection, AudioFormat format, CaptureOptions options,
          std::shared_ptr<OwnOutput> ownOutput);
  Status connect(const std::string& source);
  Status startStream(const std::string& source);
  void dropStream();
  pa_stream_state_t state() const { return pa_stream_get_state(stream_); }
  void read();
  void stateChanged();
  void followDefaultOutput();
  void defaultOutputFound();
  void cancelLookup();
  /// Hands out the rest and falls silent; `why` is null when the client stopped it.
  void end(const AudioStop* why);

  std::shared_ptr<Connection> connection_;
  CaptureOptions options_;
  std::shared_ptr<OwnOutput> ownOutput_;
  BlockAssembler blocks_;
  Alarm firstDataAlarm_;
  SubscriptionHandle defaults_;
  pa_stream* stream_ = nullptr;
  pa_operation* lookup_ = nullptr;
  std::string source_, found_;
  bool heard_ = false;
  bool running_ = false;
};

}  // namespace kestrin::pulse
