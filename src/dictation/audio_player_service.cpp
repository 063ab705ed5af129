#include "dictation/audio_player_service.h"

#include <algorithm>
#include <utility>

namespace kestrin {

AudioPlayerService::AudioPlayerService(Dispatch& dispatch, Audio& audio,
                                       const SettingsStore& settings, Logger& logger)
    : dispatch_(dispatch),
      audio_(audio),
      settings_(settings),
      logger_(logger),
      opening_(dispatch.makeQueue("com.kestrin.player")) {
  applyPreferences();
}

void AudioPlayerService::play(Bytes data, std::function<void()> completion) {
  const bool stopped = stop();
  completionHandler_ = std::move(completion);
  if (!stopped) return begin(std::move(data));
  pendingStart_ = dispatch_.after(dispatch_.mainQueue(), pauseAfterStop,
                                  [this, data = std::move(data)]() mutable {
                                    const auto timer = std::move(pendingStart_);
                                    begin(std::move(data));
                                  });
}

bool AudioPlayerService::stop() {
  const bool played = isPlaying();
  ++playNumber_;
  pendingStart_.reset();
  player_.reset();
  isOpening_ = false;
  completionHandler_ = nullptr;
  return played;
}

void AudioPlayerService::begin(Bytes data) {
  isOpening_ = true;
  const auto main = dispatch_.mainQueue();
  opening_->post([&audio = audio_, main, data = std::move(data), volume = preferredVolume_,
                  number = playNumber_,
                  began = lifetime_.guard([this](auto&&... all) { this->began(all...); }),
                  ended = lifetime_.guard([this](uint64_t number) { finished(number); })] {
    auto opened = audio.play(data, volume, [main, ended, number](bool) {
      main->post([ended, number]() mutable { ended(number); });
    });
    Result<std::shared_ptr<AudioPlayback>> player = fail(Error{});
    if (opened) {
      player = std::move(*opened);
    } else {
      player = fail(opened.error());
    }
    main->post([began, number, player, bytes = data.size()]() mutable {
      began(number, std::move(player), bytes);
    });
  });
}

void AudioPlayerService::began(uint64_t number, Result<std::shared_ptr<AudioPlayback>> player,
                               size_t bytes) {
  // Stopped or replaced while it was being opened: it goes with its handle.
  if (number != playNumber_) return;
  isOpening_ = false;
  if (!player) {
    logger_.log("AudioPlayerService", LogLevel::error,
                "❌ Audio playback error: " + player.error().description);
    return complete();
  }
  player_ = std::move(*player);
  player_->setVolume(preferredVolume_);
  logger_.print("🔊 Playing audio response (" + std::to_string(bytes) + " bytes)");
}

void AudioPlayerService::finished(uint64_t number) {
  // The end of a sound that was replaced meanwhile concerns nobody.
  if (number != playNumber_) return;
  // A very short sound may end before its opening is told.
  ++playNumber_;
  isOpening_ = false;
  player_.reset();
  complete();
}

void AudioPlayerService::complete() {
  if (const auto completion = std::exchange(completionHandler_, nullptr)) completion();
}

float AudioPlayerService::preferredVolume(const SettingsStore& settings) {
  return float(std::clamp(settings.number("pref_voiceVolume", 80), 0.0, 100.0) / 100);
}

void AudioPlayerService::applyPreferences() {
  preferredVolume_ = preferredVolume(settings_);
  if (player_) player_->setVolume(preferredVolume_);
}

}  // namespace kestrin
