#include "platform/simulated/simulated_audio.h"

#include "platform/simulated/simulated_sound_server.h"

namespace kestrin {
namespace {

using simulated::Microphone;
using simulated::SoundServer;
using simulated::TimeLine;

Error noMicrophone() { return {"Audio", noAudioDevice, "No microphone was found."}; }

}  // namespace

SimulatedAudio::SimulatedAudio(Dispatch& dispatch, FaultPlan* faults)
    : server_(std::make_shared<SoundServer>(dispatch, faults)) {
  addMicrophone("mic", "Microphone", {48000, 1});
}

SimulatedAudio::~SimulatedAudio() = default;

void SimulatedAudio::addMicrophone(const std::string& id, const std::string& name,
                                   AudioFormat format) {
  const std::lock_guard lock(server_->mutex);
  server_->microphones.push_back({{id, name, server_->microphones.empty()},
                                  format,
                                  false,
                                  std::make_shared<TimeLine>(format.sampleRate)});
}

void SimulatedAudio::removeMicrophone(const std::string& id) {
  {
    const std::lock_guard lock(server_->mutex);
    auto& all = server_->microphones;
    std::erase_if(all, [&](const Microphone& microphone) { return microphone.device.id == id; });
    if (!all.empty() && !server_->find("")) all.front().device.isDefault = true;
  }
  server_->endClients(AudioStop::deviceGone,
                      [&](const SoundServer::Client& client) { return client.uses(id); });
}

void SimulatedAudio::addOutput(const std::string& id, const std::string& name) {
  const std::lock_guard lock(server_->mutex);
  server_->outputs.push_back({id, name, server_->outputs.empty()});
}

void SimulatedAudio::setSuspended(const std::string& id, bool suspended) {
  const std::lock_guard lock(server_->mutex);
  if (Microphone* microphone = server_->find(id)) microphone->suspended = suspended;
}

void SimulatedAudio::setOpeningTime(Duration time) {
  const std::lock_guard lock(server_->mutex);
  server_->openingTime = time;
}

void SimulatedAudio::refuseCaptures(std::optional<Error> error) {
  const std::lock_guard lock(server_->mutex);
  server_->refusal = std::move(error);
}

void SimulatedAudio::setServerRunning(bool running) {
  {
    const std::lock_guard lock(server_->mutex);
    server_->running = running;
  }
  if (!running)
    server_->endClients(AudioStop::serverGone, [](const SoundServer::Client&) { return true; });
}

void SimulatedAudio::setFragment(Duration fragment, Duration firstData) {
  const std::lock_guard lock(server_->mutex);
  server_->fragment = fragment;
  server_->firstData = firstData;
}

void SimulatedAudio::speak(const std::string& microphone, std::vector<float> samples,
                           int sampleRate) {
  const SteadyTime now = server_->dispatch.clock().steadyNow();
  const std::lock_guard lock(server_->mutex);
  if (Microphone* device = server_->find(microphone)) device->line->lay(now, samples, sampleRate);
}

Status SimulatedAudio::speakWav(const std::string& microphone, std::string_view bytes) {
  auto sound = wav::read(bytes);
  if (!sound) return fail(sound.error());
  speak(microphone, wav::toMono(*sound), sound->sampleRate);
  return {};
}

void SimulatedAudio::playSystemSound(std::vector<float> samples, int sampleRate) {
  const SteadyTime now = server_->dispatch.clock().steadyNow();
  const std::lock_guard lock(server_->mutex);
  server_->systemLine.lay(now, samples, sampleRate);
}

std::vector<SimulatedAudio::Played> SimulatedAudio::played() const {
  const std::lock_guard lock(server_->mutex);
  return server_->played;
}

int SimulatedAudio::openCaptures() const {
  return int(
      server_->clientsWhere([](const SoundServer::Client& client) { return !client.isPlayback(); })
          .size());
}

bool SimulatedAudio::outputMuted() const {
  const std::lock_guard lock(server_->mutex);
  return server_->muted;
}

Status SimulatedAudio::available() {
  const std::lock_guard lock(server_->mutex);
  return server_->check("audio.available");
}

Result<std::vector<AudioDevice>> SimulatedAudio::inputDevices() {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.devices"); !status) return fail(status.error());
  std::vector<AudioDevice> devices;
  for (const Microphone& microphone : server_->microphones) devices.push_back(microphone.device);
  return devices;
}

Result<std::vector<AudioDevice>> SimulatedAudio::outputDevices() {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.devices"); !status) return fail(status.error());
  return server_->outputs;
}

Status SimulatedAudio::setDefaultInput(const std::string& id) {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.setDefault"); !status) return status;
  if (id.empty() || !server_->find(id)) return fail(noMicrophone());
  for (Microphone& microphone : server_->microphones)
    microphone.device.isDefault = microphone.device.id == id;
  return {};
}

Status SimulatedAudio::setDefaultOutput(const std::string& id) {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.setDefault"); !status) return status;
  const auto has = [&](const AudioDevice& device) { return device.id == id; };
  if (std::none_of(server_->outputs.begin(), server_->outputs.end(), has))
    return fail("Audio", noAudioDevice, "No sound output was found.");
  for (AudioDevice& device : server_->outputs) device.isDefault = has(device);
  return {};
}

AudioFormat SimulatedAudio::inputFormat(const std::string& deviceId) {
  const std::lock_guard lock(server_->mutex);
  if (!server_->check("audio.inputFormat")) return {};
  const Microphone* microphone = server_->find(deviceId);
  return microphone ? microphone->format : AudioFormat{};
}

Result<std::unique_ptr<AudioCapture>> SimulatedAudio::capture(CaptureOptions options) {
  AudioFormat format = simulated::systemFormat;
  std::string device;
  Duration openingTime{};
  {
    const std::lock_guard lock(server_->mutex);
    openingTime = server_->openingTime;
  }
  if (openingTime > Duration(0)) server_->dispatch.clock().sleep(openingTime, "the sound server");
  {
    const std::lock_guard lock(server_->mutex);
    if (auto status = server_->check("audio.capture"); !status) return fail(status.error());
    if (server_->refusal) return fail(*server_->refusal);
    if (options.source == AudioSource::microphone) {
      const Microphone* microphone = server_->find(options.deviceId);
      if (!microphone) return fail(noMicrophone());
      format = microphone->format;
      device = microphone->device.id;
    }
  }
  return simulated::openCapture(server_, device, format, std::move(options));
}

Result<std::unique_ptr<AudioPlayback>> SimulatedAudio::play(const Bytes& bytes, float volume,
                                                            std::function<void(bool)> onEnd) {
  auto sound = wav::read(bytes);
  if (!sound) return fail("Audio", unplayableSound, sound.error().description);
  {
    const std::lock_guard lock(server_->mutex);
    if (auto status = server_->check("audio.play"); !status) return fail(status.error());
  }
  return simulated::openPlayback(server_, bytes, *sound, volume, std::move(onEnd));
}

Result<int> SimulatedAudio::outputVolume() {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.volume"); !status) return fail(status.error());
  return server_->volume;
}

Status SimulatedAudio::setOutputVolume(int percent) {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.volume"); !status) return status;
  server_->volume = std::clamp(percent, 0, 100);
  return {};
}

Status SimulatedAudio::setOutputMuted(bool muted) {
  const std::lock_guard lock(server_->mutex);
  if (auto status = server_->check("audio.volume"); !status) return status;
  server_->muted = muted;
  return {};
}

}  // namespace kestrin
