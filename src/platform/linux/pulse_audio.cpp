#include "platform/linux/pulse_audio.h"

#include <algorithm>

#include "platform/linux/pulse_playback.h"

namespace kestrin {
namespace pulse {
namespace {

struct Source {
  std::string name;
  AudioFormat format;
  uint32_t monitorOf = PA_INVALID_INDEX;
};

struct Sink {
  std::string name;
  std::string monitor;
  uint32_t index = PA_INVALID_INDEX;
  pa_cvolume volume{};
};

std::string orEmpty(const char* text) { return text ? text : ""; }

class PulseAudio final : public Audio {
 public:
  explicit PulseAudio(std::string server)
      : connection_(Connection::make(std::move(server))),
        ownOutput_(std::make_shared<OwnOutput>()) {}

  Status available() override {
    const Connection::Lock lock(*connection_);
    return connection_->connect();
  }

  Result<std::vector<AudioDevice>> inputDevices() override {
    const Connection::Lock lock(*connection_);
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    std::vector<AudioDevice> devices;
    auto listed =
        connection_->finish(pa_context_get_source_info_list(
                                connection_->context(),
                                [](pa_context*, const pa_source_info* info, int end, void* out) {
                                  // A monitor is what a speaker plays, not something to speak into.
                                  if (end || info->monitor_of_sink != PA_INVALID_INDEX) return;
                                  static_cast<std::vector<AudioDevice>*>(out)->push_back(
                                      {orEmpty(info->name), orEmpty(info->description), false});
                                },
                                &devices),
                            "Listing microphones");
    if (!listed) return fail(listed.error());
    return markDefault(std::move(devices), &pa_server_info::default_source_name);
  }

  Result<std::vector<AudioDevice>> outputDevices() override {
    const Connection::Lock lock(*connection_);
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    std::vector<AudioDevice> devices;
    auto listed =
        connection_->finish(pa_context_get_sink_info_list(
                                connection_->context(),
                                [](pa_context*, const pa_sink_info* info, int end, void* out) {
                                  if (end) return;
                                  static_cast<std::vector<AudioDevice>*>(out)->push_back(
                                      {orEmpty(info->name), orEmpty(info->description), false});
                                },
                                &devices),
                            "Listing outputs");
    if (!listed) return fail(listed.error());
    return markDefault(std::move(devices), &pa_server_info::default_sink_name);
  }

  Status setDefaultInput(const std::string& id) override {
    const Connection::Lock lock(*connection_);
    return command("Choosing the microphone", [&](pa_context* context, auto reply, void* out) {
      return pa_context_set_default_source(context, id.c_str(), reply, out);
    });
  }

  Status setDefaultOutput(const std::string& id) override {
    const Connection::Lock lock(*connection_);
    return command("Choosing the output", [&](pa_context* context, auto reply, void* out) {
      return pa_context_set_default_sink(context, id.c_str(), reply, out);
    });
  }

  AudioFormat inputFormat(const std::string& deviceId) override {
    const Connection::Lock lock(*connection_);
    if (!connection_->connect()) return {};
    const auto source = microphone(deviceId);
    return source ? source->format : AudioFormat{};
  }

  Result<std::unique_ptr<AudioCapture>> capture(CaptureOptions options) override {
    const Connection::Lock lock(*connection_);
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    if (options.source == AudioSource::systemAudio) {
      const auto sink = defaultSink();
      if (!sink) return fail(sink.error());
      return Capture::open(connection_, sink->monitor, {16000, 1}, std::move(options), ownOutput_);
    }
    const auto source = microphone(options.deviceId);
    if (!source) return fail(source.error());
    return Capture::open(connection_, source->name, source->format, std::move(options), nullptr);
  }

  Result<std::unique_ptr<AudioPlayback>> play(const Bytes& bytes, float volume,
                                              std::function<void(bool)> onEnd) override {
    auto sound = wav::read(bytes);
    if (!sound) return fail("Audio", unplayableSound, sound.error().description);
    const Connection::Lock lock(*connection_);
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    return Playback::open(connection_, std::move(*sound), volume, std::move(onEnd), ownOutput_);
  }

  Result<int> outputVolume() override {
    const Connection::Lock lock(*connection_);
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    const auto sink = defaultSink();
    if (!sink) return fail(sink.error());
    const int percent =
        int((uint64_t(pa_cvolume_max(&sink->volume)) * 100 + PA_VOLUME_NORM / 2) / PA_VOLUME_NORM);
    return std::clamp(percent, 0, 100);
  }

  Status setOutputVolume(int percent) override {
    const Connection::Lock lock(*connection_);
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    auto sink = defaultSink();
    if (!sink) return fail(sink.error());
    // Scaled, so that the balance between left and right stays as the user set it.
    pa_cvolume_scale(&sink->volume, pa_volume_t(uint64_t(PA_VOLUME_NORM) *
                                                uint64_t(std::clamp(percent, 0, 100)) / 100));
    return command("Setting the volume", [&](pa_context* context, auto reply, void* out) {
      return pa_context_set_sink_volume_by_index(context, sink->index, &sink->volume, reply, out);
    });
  }

  Status setOutputMuted(bool muted) override {
    const Connection::Lock lock(*connection_);
    return command("Muting", [&](pa_context* context, auto reply, void* out) {
      return pa_context_set_sink_mute_by_name(context, "@DEFAULT_SINK@", muted, reply, out);
    });
  }

 private:
  // With the lock held:

  /// Runs what `start` begins and reports whether the server did it.
  template <class Start>
  Status command(const std::string& what, Start start) {
    if (auto ready = connection_->connect(); !ready) return fail(ready.error());
    int succeeded = 0;
    const pa_context_success_cb_t reply = [](pa_context*, int success, void* out) {
      *static_cast<int*>(out) = success;
    };
    auto done = connection_->finish(start(connection_->context(), reply, &succeeded), what);
    if (!done) return fail(done.error());
    if (!succeeded) return fail(connection_->lastError(what));
    return {};
  }

  Result<std::string> serverDefault(const char* pa_server_info::*field) {
    struct Reply {
      const char* pa_server_info::*field;
      std::string name;
    } reply{field, {}};
    auto asked = connection_->finish(pa_context_get_server_info(
                                         connection_->context(),
                                         [](pa_context*, const pa_server_info* info, void* out) {
                                           auto& wanted = *static_cast<Reply*>(out);
                                           if (info) wanted.name = orEmpty(info->*wanted.field);
                                         },
                                         &reply),
                                     "Asking for the default device");
    if (!asked) return fail(asked.error());
    return reply.name;
  }

  Result<std::vector<AudioDevice>> markDefault(std::vector<AudioDevice> devices,
                                               const char* pa_server_info::*field) {
    const auto name = serverDefault(field);
    if (!name) return fail(name.error());
    for (AudioDevice& device : devices) device.isDefault = device.id == *name;
    return devices;
  }

  /// The capture device of this id, or the default one.
  Result<Source> microphone(const std::string& id) {
    Source source;
    auto asked = connection_->finish(
        pa_context_get_source_info_by_name(
            connection_->context(), id.empty() ? "@DEFAULT_SOURCE@" : id.c_str(),
            [](pa_context*, const pa_source_info* info, int end, void* out) {
              if (end) return;
              *static_cast<Source*>(out) = {
                  orEmpty(info->name),
                  {int(info->sample_spec.rate), int(info->sample_spec.channels)},
                  info->monitor_of_sink};
            },
            &source),
        "Asking for the microphone");
    if (!asked) return fail(asked.error());
    if (source.name.empty()) return fail("Audio", noAudioDevice, "No microphone was found.");
    if (id.empty() && source.monitorOf != PA_INVALID_INDEX) {
      // Without any microphone the server offers the default output's monitor: that would be the
      // system's sound under the user's name. Another monitor is somebody's deliberate choice.
      const auto sink = defaultSink();
      if (sink && sink->index == source.monitorOf)
        return fail("Audio", noAudioDevice, "No microphone was found.");
    }
    return source;
  }

  Result<Sink> defaultSink() {
    Sink sink;
    auto asked = connection_->finish(
        pa_context_get_sink_info_by_name(
            connection_->context(), "@DEFAULT_SINK@",
            [](pa_context*, const pa_sink_info* info, int end, void* out) {
              if (end) return;
              *static_cast<Sink*>(out) = {orEmpty(info->name), orEmpty(info->monitor_source_name),
                                          info->index, info->volume};
            },
            &sink),
        "Asking for the output");
    if (!asked) return fail(asked.error());
    if (sink.name.empty()) return fail("Audio", noAudioDevice, "No sound output was found.");
    return sink;
  }

  std::shared_ptr<Connection> connection_;
  std::shared_ptr<OwnOutput> ownOutput_;
};

}  // namespace
}  // namespace pulse

std::unique_ptr<Audio> makePulseAudio(std::string server) {
  return std::make_unique<pulse::PulseAudio>(std::move(server));
}

}  // namespace kestrin
