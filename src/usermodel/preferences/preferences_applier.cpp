#include "usermodel/preferences/preferences_applier.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "dictation/audio_device_manager.h"
#include "dictation/audio_recorder.h"
#include "usermodel/preferences/preference_changes.h"

namespace kestrin {
namespace {

enum class Affects { appearance, chrome, sidebar, compact, taskbar, audio };

constexpr std::array<std::pair<std::string_view, Affects>, 14> groups{{
    {"pref_appearance", Affects::appearance},
    {"pref_accentColor", Affects::appearance},
    {"pref_fontSize", Affects::appearance},
    {"pref_useSystemFont", Affects::appearance},
    {"pref_alwaysOnTop", Affects::chrome},
    {"pref_windowOpacity", Affects::chrome},
    {"pref_showSidebar", Affects::sidebar},
    {"pref_compactMode", Affects::compact},
    {"pref_showDockIcon", Affects::taskbar},
    {"pref_voiceVolume", Affects::audio},
    {"pref_inputSensitivity", Affects::audio},
    {"pref_showEmoji", Affects::audio},
    {"pref_inputDevice", Affects::audio},
    {"pref_outputDevice", Affects::audio},
}};

std::optional<Affects> groupOf(std::string_view key) {
  for (const auto& [name, group] : groups) {
    if (name == key) return group;
  }
  return {};
}

std::string chosenDevice(const SettingsStore& settings, const char* key) {
  const std::string name = settings.string(key, "Default");
  return name == "Default" ? std::string() : name;
}

bool makeDefault(Audio& audio, const std::string& name, DeviceScope scope) {
  const auto id = AudioDeviceManager(audio).findDeviceID(name, scope);
  if (!id) return false;
  return (scope == DeviceScope::input ? audio.setDefaultInput(*id) : audio.setDefaultOutput(*id))
      .has_value();
}

}  // namespace

PreferencesApplier::PreferencesApplier(Dispatch& dispatch, SettingsStore& settings,
                                       NotificationCenter& notifications, Audio& audio,
                                       AudioPlayerService& player, Logger& logger)
    : dispatch_(dispatch),
      settings_(settings),
      notifications_(notifications),
      audio_(audio),
      player_(player),
      logger_(logger),
      deviceQueue_(dispatch.makeQueue("com.kestrin.preferences.devices")) {}

void PreferencesApplier::start(std::weak_ptr<MainWindowEffects> mainWindow) {
  mainWindow_ = std::move(mainWindow);
  apply();
  changes_ =
      notifications_.observe(preferencesChanged, lifetime_.guard([this](const Json& userInfo) {
        if (auto key = userInfo.stringAt("key")) apply(key);
      }));
}

void PreferencesApplier::apply(const std::optional<std::string>& key) {
  const auto group = key ? groupOf(*key) : std::nullopt;
  if (key && !group) return;
  const auto wanted = [&](Affects each) { return !key || group == each; };
  if (const auto window = mainWindow_.lock()) {
    if (wanted(Affects::appearance)) applyAppearance(*window);
    if (wanted(Affects::chrome)) applyWindowChrome(*window);
    if (wanted(Affects::sidebar)) {
      window->setSidebarVisible(settings_.boolean("pref_showSidebar", true));
    }
    if (wanted(Affects::compact)) window->setCompactMode(settings_.boolean("pref_compactMode"));
    if (wanted(Affects::taskbar)) {
      window->setTaskbarEntry(settings_.boolean("pref_showDockIcon", true));
    }
  }
  if (wanted(Affects::audio)) applyAudio();
}

void PreferencesApplier::applyAppearance(MainWindowEffects& window) {
  const auto stored = settings_.get("pref_appearance");
  const int64_t chosen = stored ? stored->asInt().value_or(0) : 0;
  window.setAppearance(chosen == 0   ? Appearance::light
                       : chosen == 1 ? Appearance::dark
                                     : Appearance::system);
  window.redisplay();
}

void PreferencesApplier::applyWindowChrome(MainWindowEffects& window) {
  window.setWindowLevel(settings_.boolean("pref_alwaysOnTop") ? floatingWindowLevel
                                                              : normalWindowLevel);
  // Never stored reads as 0 and leaves the window as it is.
  const double opacity = settings_.number("pref_windowOpacity", 0);
  if (opacity > 0) window.setWindowAlpha(std::min(opacity / 100, 1.0));
}

void PreferencesApplier::applyAudio() {
  const std::string input = chosenDevice(settings_, "pref_inputDevice");
  const std::string output = chosenDevice(settings_, "pref_outputDevice");
  if (input.empty() && output.empty()) return applyLevels();
  deviceQueue_->post([input, output, &audio = audio_, &logger = logger_,
                      main = dispatch_.mainQueue(),
                      levels = std::function<void()>(lifetime_.guard([this] { applyLevels(); }))] {
    if (!input.empty() && !makeDefault(audio, input, DeviceScope::input)) {
      logger.print("⚠️ Could not set default input device to '" + input + "'");
    }
    if (!output.empty() && !makeDefault(audio, output, DeviceScope::output)) {
      logger.print("⚠️ Could not set default output device to '" + output + "'");
    }
    main->post(levels);
  });
}

void PreferencesApplier::applyLevels() {
  player_.applyPreferences();
  AudioRecorder::applyPreferences(settings_);
}

}  // namespace kestrin
