#include "dictation/audio_player_service.h"

#include <algorithm>
#include <utility>

namespace kestrin {

AudioPlayerService::AudioPlayerService(Dispatch& dispatch, Audio& audio, SettingsStore& settings,
                                       Logger& logger)
    : dispatch_(dispatch),
      audio_(audio),
      settings_(settings),
      logger_(logger),
      queue_(dispatch.makeQueue("com.kestrin.audioplayer")) {
  applyPreferences();
}

AudioPlayerService::~AudioPlayerService() = default;

void AudioPlayerService::play(Bytes data, std::function<void()> completion) {
  const bool wasPlaying = playing_;
  stop();
  playing_ = true;
  completionHandler_ = std::move(completion);
  if (!wasPlaying) return begin(std::move(data));
  dispatch_.mainQueue()->postAfter(settleTime, lifetime_.guard([this, generation = generation_,
                                                                data = std::move(data)]() mutable {
    if (generation == generation_) begin(std::move(data));
  }));
}

void AudioPlayerService::stop() {
  ++generation_;
  playing_ = false;
  completionHandler_ = nullptr;
  // Closing a stream waits for the sound server.
  if (player_) queue_->post([player = std::move(player_)]() mutable { player.reset(); });
  player_.reset();
}

void AudioPlayerService::begin(Bytes data) {
  const auto main = dispatch_.mainQueue();
  const int generation = generation_;
  const auto onEnd = [main, done = lifetime_.guard([this, generation] { finished(generation); })](
                         bool) { main->post(done); };
  const std::function<void(std::shared_ptr<AudioPlayback>, Error)> onOpened = lifetime_.guard(
      [this, generation, size = data.size()](std::shared_ptr<AudioPlayback> player, Error error) {
        if (generation != generation_) {
          if (player) queue_->post([player]() mutable { player.reset(); });
          return;
        }
        if (!player) {
          logger_.print("❌ Audio playback error: " + error.description);
          return finished(generation);
        }
        player_ = std::move(player);
        logger_.print("🔊 Playing audio response (" + std::to_string(size) + " bytes)");
      });
  queue_->post(
      [&audio = audio_, main, onEnd, onOpened, data = std::move(data), volume = preferredVolume_] {
        auto opened = audio.play(data, volume, onEnd);
        std::shared_ptr<AudioPlayback> player;
        Error error;
        if (opened) {
          player = std::move(*opened);
        } else {
          error = opened.error();
        }
        main->post([onOpened, player = std::move(player), error]() mutable {
          onOpened(std::move(player), error);
        });
      });
}

void AudioPlayerService::finished(int generation) {
  if (generation != generation_) return;
  const auto completion = std::move(completionHandler_);
  stop();
  if (completion) completion();
}

void AudioPlayerService::applyPreferences() {
  const double percent = std::clamp(settings_.number("pref_voiceVolume", 80), 0.0, 100.0);
  preferredVolume_ = static_cast<float>(percent / 100);
  if (player_) player_->setVolume(preferredVolume_);
}

}  // namespace kestrin
