#pragma once

#include <map>
#include <optional>
#include <string>

#include "platform/settings.h"

namespace kestrin {

/// The user's stored attributes by name, and the prompts and temperatures of the modes: the
/// built-in tables with the user's own laid over them. Reads the settings at each call.
/// Thread-safe.
class UserPreferences {
 public:
  static constexpr const char* userNameKey = "nibo_user_name";
  static constexpr const char* userLocationKey = "nibo_user_location";
  static constexpr const char* userCityKey = "nibo_user_city";
  static constexpr const char* userCountryKey = "nibo_user_country";
  static constexpr const char* userTimezoneKey = "nibo_user_timezone";
  static constexpr const char* userPersonalityKey = "nibo_user_personality";
  static constexpr const char* userAboutMeTranscriptKey = "nibo_user_about_me_transcript";
  static constexpr const char* userArchetypeKey = "nibo_user_archetype";
  static constexpr const char* personalityTestCompletedKey = "nibo_personality_test_completed";
  static constexpr const char* setupCompletedKey = "nibo_setup_completed";
  static constexpr const char* customPromptsKey = "nibo_custom_prompts";
  static constexpr const char* modeTemperaturesKey = "nibo_mode_temperatures";
  static constexpr const char* liveAssistPromptsKey = "nibo_live_assist_prompts";

  static constexpr const char* noLocation = "Location not set";

  explicit UserPreferences(SettingsStore& settings) : settings_(settings) {}

  /// By mode id. Unknown ids of the stored object are kept.
  std::map<std::string, std::string> customPrompts() const;
  std::map<std::string, double> modeTemperatures() const;
  /// By use case id ("sales_call", "meeting").
  std::map<std::string, std::string> liveAssistPrompts() const;
  void setCustomPrompts(const std::map<std::string, std::string>& prompts);
  void setModeTemperatures(const std::map<std::string, double>& temperatures);
  void setLiveAssistPrompts(const std::map<std::string, std::string>& prompts);

  /// Only when the user's differs from the built-in one; temperatures by more than 0.01.
  bool hasCustomPrompt(const std::string& mode) const;
  bool hasCustomTemperature(const std::string& mode) const;

  bool hasPersonality() const { return !settings_.string(userPersonalityKey).empty(); }
  /// The stored archetype record; nothing when there is none that decodes.
  std::optional<Json> userArchetype() const;
  /// Nothing removes the key.
  void setUserArchetype(const std::optional<Json>& archetype);
  /// Location, else city, else "Location not set".
  std::string displayLocation() const;

 private:
  /// A stored object, as JSON or as JSON inside a text; null when absent or not decodable.
  Json storedObject(const char* key) const;

  SettingsStore& settings_;
};

/// The built-in tables.
const std::map<std::string, std::string>& defaultPrompts();
const std::map<std::string, double>& defaultTemperatures();
const std::map<std::string, std::string>& defaultLiveAssistPrompts();

}  // namespace kestrin
