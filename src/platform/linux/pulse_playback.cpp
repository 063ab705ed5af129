#include "platform/linux/pulse_playback.h"

#include <algorithm>

namespace kestrin::pulse {
namespace {

/// Short, so that a change of volume is heard at once.
constexpr pa_usec_t bufferedAhead = 100 * PA_USEC_PER_MSEC;
/// A suspended output would swallow the end of a sound for ever.
constexpr std::chrono::seconds overdueAfter(5);

}  // namespace

Playback::Playback(std::shared_ptr<Connection> connection, wav::Sound sound, float volume,
                   std::function<void(bool)> onEnd, std::shared_ptr<OwnOutput> ownOutput)
    : connection_(std::move(connection)),
      sound_(std::move(sound)),
      volume_(std::clamp(volume, 0.0F, 1.0F)),
      onEnd_(std::move(onEnd)),
      ownOutput_(std::move(ownOutput)) {}

Result<std::unique_ptr<Playback>> Playback::open(std::shared_ptr<Connection> connection,
                                                 wav::Sound sound, float volume,
                                                 std::function<void(bool)> onEnd,
                                                 std::shared_ptr<OwnOutput> ownOutput) {
  std::unique_ptr<Playback> playback(new Playback(std::move(connection), std::move(sound), volume,
                                                  std::move(onEnd), std::move(ownOutput)));
  if (auto connected = playback->connect(); !connected) return fail(connected.error());
  return playback;
}

Status Playback::connect() {
  const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, uint32_t(sound_.sampleRate),
                            uint8_t(sound_.channels)};
  pa_channel_map map;
  pa_channel_map_init_extend(&map, spec.channels, PA_CHANNEL_MAP_WAVEEX);
  stream_ = pa_stream_new(connection_->context(), "Spoken reply", &spec, &map);
  if (!stream_) return fail(connection_->lastError("Playing"));
  pa_stream_set_state_callback(
      stream_, [](pa_stream*, void* self) { static_cast<Playback*>(self)->stateChanged(); }, this);
  pa_stream_set_write_callback(
      stream_,
      [](pa_stream*, size_t bytes, void* self) { static_cast<Playback*>(self)->write(bytes); },
      this);
  pa_buffer_attr buffer{};
  buffer.maxlength = buffer.prebuf = buffer.minreq = buffer.fragsize = uint32_t(-1);
  buffer.tlength = uint32_t(pa_usec_to_bytes(bufferedAhead, &spec));
  // Running before the stream is: a short sound is written, and over, before we hear that it is
  // ready.
  running_ = true;
  ownOutput_->began();
  if (pa_stream_connect_playback(stream_, nullptr, &buffer, PA_STREAM_ADJUST_LATENCY, nullptr,
                                 nullptr) < 0) {
    release();
    return fail(connection_->lastError("Playing"));
  }
  connection_->waitUntil(
      [this] { return state() == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state()) || !running_; });
  if (running_ && state() != PA_STREAM_READY) {
    release();
    return fail(PA_STREAM_IS_GOOD(state())
                    ? Error{"Audio", audioRefused, "Playing: the sound server does not answer."}
                    : connection_->lastError("Playing"));
  }
  if (running_)
    overdue_.set(*connection_,
                 overdueAfter + std::chrono::milliseconds(int64_t(sound_.seconds() * 1000)),
                 [this] { finished(false); });
  return {};
}

Playback::~Playback() {
  const Connection::Lock lock(*connection_);
  release();
  if (!stream_) return;
  pa_stream_set_write_callback(stream_, nullptr, nullptr);
  pa_stream_unref(stream_);
}

void Playback::stop() {
  const Connection::Lock lock(*connection_);
  release();
}

void Playback::setVolume(float volume) { volume_ = std::clamp(volume, 0.0F, 1.0F); }

void Playback::write(size_t bytes) {
  const float volume = volume_;
  while (running_ && bytes > 0 && written_ < sound_.samples.size()) {
    void* target = nullptr;
    size_t room = bytes;
    if (pa_stream_begin_write(stream_, &target, &room) < 0) return;
    const size_t samples = std::min(room / sizeof(float), sound_.samples.size() - written_);
    const float* source = sound_.samples.data() + written_;
    std::transform(source, source + samples, static_cast<float*>(target),
                   [volume](float sample) { return sample * volume; });
    if (pa_stream_write(stream_, target, samples * sizeof(float), nullptr, 0, PA_SEEK_RELATIVE) < 0)
      return;
    written_ += samples;
    bytes -= std::min(bytes, samples * sizeof(float));
  }
  if (!running_ || draining_ || written_ < sound_.samples.size()) return;
  draining_ = true;
  pa_operation* drain = pa_stream_drain(
      stream_,
      [](pa_stream*, int success, void* self) {
        static_cast<Playback*>(self)->finished(success != 0);
      },
      this);
  if (drain) pa_operation_unref(drain);
}

void Playback::stateChanged() {
  connection_->signal();
  // Before it was ready the caller learns of a failure from `connect`.
  if (running_ && overdue_.isSet() && !PA_STREAM_IS_GOOD(state())) finished(false);
}

void Playback::finished(bool completely) {
  if (!running_) return;
  release();
  connection_->signal();
  // The client may let go of this object as soon as it knows.
  const auto onEnd = std::move(onEnd_);
  if (onEnd) onEnd(completely);
}

void Playback::release() {
  overdue_.cancel();
  if (!running_) return;
  running_ = false;
  ownOutput_->ended();
  pa_stream_set_state_callback(stream_, nullptr, nullptr);
  pa_stream_disconnect(stream_);
}

}  // namespace kestrin::pulse
