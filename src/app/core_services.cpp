#include "app/core_services.h"

#include <utility>

namespace kestrin {
namespace {

RequestContextSources contextSources(AudioPlayerService& player) {
  RequestContextSources sources;
  sources.playAudio = [&player](Bytes audio, std::function<void()> completion) {
    player.play(std::move(audio), std::move(completion));
  };
  return sources;
}

}  // namespace

CoreServices::CoreServices(Platform& p, const Endpoints& e)
    : platform(p),
      endpoints(e),
      logger(p.dispatch, p.notifications),
      deviceId(p.files, p.settings, p.random),
      machineIdentity(p.controls, p.settings),
      keychain(p.secrets),
      geminiKey(keychain, p.settings),
      preferences(p.settings),
      asr(p.dispatch, p.http, p.files, p.random, logger, e),
      player(p.dispatch, p.audio, p.settings, logger),
      cache(p.files, logger),
      stats(p.http, logger, cache, e),
      transcription(std::make_shared<TranscriptionService>(
          p.dispatch, p.http, p.settings, p.notifications, logger, asr, preferences, deviceId,
          geminiKey, e, contextSources(player))) {}

void CoreServices::warmUp() {
  platform.dispatch.globalQueue()->post([this] {
    deviceId.deviceId();
    geminiKey.apiKey();
  });
}

}  // namespace kestrin
