#include "platform/linux/pulse_capture.h"

namespace kestrin::pulse {
namespace {

/// Short fragments give the first sound early; a block is many of them.
constexpr pa_usec_t fragment = 20 * PA_USEC_PER_MSEC;

}  // namespace

Capture::Capture(std::shared_ptr<Connection> connection, AudioFormat format, CaptureOptions options,
                 std::shared_ptr<OwnOutput> ownOutput)
    : connection_(std::move(connection)),
      options_(std::move(options)),
      ownOutput_(std::move(ownOutput)),
      blocks_(format, options_.framesPerBlock, options_.onBlock) {}

Result<std::unique_ptr<Capture>> Capture::open(std::shared_ptr<Connection> connection,
                                               const std::string& source, AudioFormat format,
                                               CaptureOptions options,
                                               std::shared_ptr<OwnOutput> ownOutput) {
  std::unique_ptr<Capture> capture(
      new Capture(std::move(connection), format, std::move(options), std::move(ownOutput)));
  if (auto connected = capture->connect(source); !connected) return fail(connected.error());
  return capture;
}

Status Capture::startStream(const std::string& source) {
  source_ = source;
  const AudioFormat wanted = format();
  const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, uint32_t(wanted.sampleRate),
                            uint8_t(wanted.channels)};
  stream_ = pa_stream_new(connection_->context(), ownOutput_ ? "System audio" : "Microphone", &spec,
                          nullptr);
  if (!stream_) return fail(connection_->lastError("Recording"));
  pa_stream_set_state_callback(
      stream_, [](pa_stream*, void* self) { static_cast<Capture*>(self)->stateChanged(); }, this);
  pa_stream_set_read_callback(
      stream_, [](pa_stream*, size_t, void* self) { static_cast<Capture*>(self)->read(); }, this);

  pa_buffer_attr buffer{};
  buffer.maxlength = uint32_t(-1);
  buffer.fragsize = uint32_t(pa_usec_to_bytes(fragment, &spec));
  const auto flags = pa_stream_flags_t(PA_STREAM_DONT_MOVE | PA_STREAM_ADJUST_LATENCY);
  if (pa_stream_connect_record(stream_, source.c_str(), &buffer, flags) < 0)
    return fail(connection_->lastError("Recording"));
  return {};
}

Status Capture::connect(const std::string& source) {
  if (auto started = startStream(source); !started) return started;
  connection_->waitUntil(
      [this] { return state() == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state()); });
  if (state() != PA_STREAM_READY)
    return fail(PA_STREAM_IS_GOOD(state())
                    ? Error{"Audio", audioRefused, "Recording: the sound server does not answer."}
                    : connection_->lastError("Recording"));
  running_ = true;
  firstDataAlarm_.set(*connection_, options_.firstDataDeadline, [this] {
    const auto why = AudioStop::noFirstData;
    if (!heard_) end(&why);
  });
  if (ownOutput_) defaults_ = connection_->observeDefaults([this] { followDefaultOutput(); });
  return {};
}

void Capture::dropStream() {
  if (!stream_) return;
  pa_stream_set_state_callback(stream_, nullptr, nullptr);
  pa_stream_set_read_callback(stream_, nullptr, nullptr);
  pa_stream_disconnect(stream_);
  pa_stream_unref(stream_);
  stream_ = nullptr;
}

Capture::~Capture() {
  const Connection::Lock lock(*connection_);
  if (running_) connection_->runOnAudioThread([this] { end(nullptr); });
  defaults_.reset();
  firstDataAlarm_.cancel();
  cancelLookup();
  dropStream();
}

void Capture::stop() {
  const Connection::Lock lock(*connection_);
  connection_->runOnAudioThread([this] {
    if (running_ && stream_) read();
    end(nullptr);
  });
}

void Capture::read() {
  while (running_ && pa_stream_readable_size(stream_) > 0) {
    const void* data = nullptr;
    size_t bytes = 0;
    if (pa_stream_peek(stream_, &data, &bytes) < 0 || bytes == 0) return;
    if (!heard_) {
      heard_ = true;
      firstDataAlarm_.cancel();
      if (options_.onFirstData) options_.onFirstData();
    }
    // No data with a length is a hole: silence keeps what follows in its place.
    const bool mute = ownOutput_ && ownOutput_->audible();
    blocks_.push(mute ? nullptr : static_cast<const float*>(data),
                 bytes / sizeof(float) / size_t(format().channels));
    pa_stream_drop(stream_);
  }
}

void Capture::stateChanged() {
  connection_->signal();
  if (!running_ || PA_STREAM_IS_GOOD(state())) return;
  const bool serverGone = !PA_CONTEXT_IS_GOOD(pa_context_get_state(pa_stream_get_context(stream_)));
  if (ownOutput_ && !serverGone) return followDefaultOutput();
  const auto why = serverGone ? AudioStop::serverGone : AudioStop::deviceGone;
  end(&why);
}

void Capture::followDefaultOutput() {
  if (!running_) return;
  cancelLookup();
  found_.clear();
  lookup_ = pa_context_get_sink_info_by_name(
      pa_stream_get_context(stream_), "@DEFAULT_SINK@",
      [](pa_context*, const pa_sink_info* info, int end, void* self) {
        auto& capture = *static_cast<Capture*>(self);
        if (!end && info->monitor_source_name) capture.found_ = info->monitor_source_name;
        if (end) capture.defaultOutputFound();
      },
      this);
  if (!lookup_) defaultOutputFound();
}

void Capture::defaultOutputFound() {
  if (!running_) return;
  const bool lost = !PA_STREAM_IS_GOOD(state());
  if (!found_.empty() && found_ != source_) {
    dropStream();
    if (startStream(found_)) return;
  } else if (!lost) {
    return;
  }
  const auto why = AudioStop::deviceGone;
  end(&why);
}

void Capture::cancelLookup() {
  if (!lookup_) return;
  pa_operation_cancel(lookup_);
  pa_operation_unref(lookup_);
  lookup_ = nullptr;
}

void Capture::end(const AudioStop* why) {
  if (!running_) return;
  running_ = false;
  blocks_.flush();
  if (why && options_.onStopped) options_.onStopped(*why);
}

}  // namespace kestrin::pulse
