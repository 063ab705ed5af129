#pragma once

#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "dictation/audio_player_service.h"
#include "platform/audio.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/notification_center.h"
#include "platform/settings.h"
#include "usermodel/preferences/main_window_effects.h"

namespace kestrin {

/// Carries changes of the settings to the running application: each key belongs to one group, and a
/// change applies its whole group. Main queue.
class PreferencesApplier {
 public:
  PreferencesApplier(Dispatch& dispatch, SettingsStore& settings, NotificationCenter& notifications,
                     Audio& audio, AudioPlayerService& player, Logger& logger);

  /// Applies everything once and from then on what "PreferencesChanged" names. Once the window is
  /// gone only the sound follows the settings.
  void start(std::weak_ptr<MainWindowEffects> mainWindow);
  /// Nothing: all groups.
  void apply(const std::optional<std::string>& key = std::nullopt);

 private:
  void applyAppearance(MainWindowEffects& window);
  void applyWindowChrome(MainWindowEffects& window);
  void applyAudio();
  void applyLevels();

  Dispatch& dispatch_;
  SettingsStore& settings_;
  NotificationCenter& notifications_;
  Audio& audio_;
  AudioPlayerService& player_;
  Logger& logger_;
  /// Choosing a device waits for the sound server.
  const QueueRef deviceQueue_;
  std::weak_ptr<MainWindowEffects> mainWindow_;
  SubscriptionHandle changes_;
  Lifetime lifetime_;
};

}  // namespace kestrin
