#include "dictation/audio_player_service.h"

#include <algorithm>
#include <utility>

namespace kestrin {

AudioPlayerService::AudioPlayerService(Dispatch& dispatch, Audio& audio,
                                       const SettingsStore& settings, Logger& logger)
    : dispatch_(dispatch), audio_(audio), settings_(settings), logger_(logger) {
  applyPreferences();
}

void AudioPlayerService::play(Bytes data, std::function<void()> completion) {
  const bool stopped = stop();
  completionHandler_ = std::move(completion);
  if (!stopped) return begin(data);
  pendingStart_ =
      dispatch_.after(dispatch_.mainQueue(), pauseAfterStop, [this, data = std::move(data)] {
        const auto timer = std::move(pendingStart_);
        begin(data);
      });
}

bool AudioPlayerService::stop() {
  const bool played = isPlaying();
  ++playNumber_;
  pendingStart_.reset();
  player_.reset();
  completionHandler_ = nullptr;
  return played;
}

void AudioPlayerService::begin(const Bytes& data) {
  auto ended = lifetime_.guard([this](uint64_t number) { finished(number); });
  auto player = audio_.play(data, preferredVolume_,
                            [main = dispatch_.mainQueue(), ended, number = playNumber_](bool) {
                              main->post([ended, number]() mutable { ended(number); });
                            });
  if (!player) {
    logger_.log("AudioPlayerService", LogLevel::error,
                "❌ Audio playback error: " + player.error().description);
    return complete();
  }
  player_ = std::move(*player);
  logger_.print("🔊 Playing audio response (" + std::to_string(data.size()) + " bytes)");
}

void AudioPlayerService::finished(uint64_t number) {
  // The end of a sound that was replaced meanwhile concerns nobody.
  if (number != playNumber_) return;
  player_.reset();
  complete();
}

void AudioPlayerService::complete() {
  if (const auto completion = std::exchange(completionHandler_, nullptr)) completion();
}

void AudioPlayerService::applyPreferences() {
  preferredVolume_ = float(std::clamp(settings_.number("pref_voiceVolume", 80), 0.0, 100.0) / 100);
  if (player_) player_->setVolume(preferredVolume_);
}

}  // namespace kestrin
