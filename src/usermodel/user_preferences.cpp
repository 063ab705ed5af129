#include "usermodel/user_preferences.h"

#include <cmath>

namespace kestrin {

Json UserPreferences::storedObject(const char* key) const {
  const auto stored = settings_.get(key);
  if (!stored) return {};
  if (stored->isObject()) return *stored;
  if (const std::string* text = stored->stringPtr()) {
    auto parsed = Json::parse(*text);
    if (parsed && parsed->isObject()) return *parsed;
  }
  return {};
}

std::map<std::string, std::string> UserPreferences::customPrompts() const {
  auto out = defaultPrompts();
  const Json stored = storedObject(customPromptsKey);
  for (const auto& [mode, prompt] : stored.members()) {
    if (const std::string* text = prompt.stringPtr()) out[mode] = *text;
  }
  return out;
}

std::map<std::string, double> UserPreferences::modeTemperatures() const {
  auto out = defaultTemperatures();
  const Json stored = storedObject(modeTemperaturesKey);
  for (const auto& [mode, temperature] : stored.members()) {
    if (const auto number = temperature.asNumber()) out[mode] = *number;
  }
  return out;
}

std::map<std::string, std::string> UserPreferences::liveAssistPrompts() const {
  auto out = defaultLiveAssistPrompts();
  const Json stored = storedObject(liveAssistPromptsKey);
  for (const auto& [useCase, prompt] : stored.members()) {
    if (const std::string* text = prompt.stringPtr()) out[useCase] = *text;
  }
  return out;
}

void UserPreferences::setCustomPrompts(const std::map<std::string, std::string>& prompts) {
  settings_.set(customPromptsKey, Json::fromMap(prompts));
}

void UserPreferences::setModeTemperatures(const std::map<std::string, double>& temperatures) {
  settings_.set(modeTemperaturesKey, Json::fromMap(temperatures));
}

void UserPreferences::setLiveAssistPrompts(const std::map<std::string, std::string>& prompts) {
  settings_.set(liveAssistPromptsKey, Json::fromMap(prompts));
}

bool UserPreferences::hasCustomPrompt(const std::string& mode) const {
  const auto stored = storedObject(customPromptsKey).stringAt(mode);
  if (!stored) return false;
  const auto& defaults = defaultPrompts();
  const auto builtIn = defaults.find(mode);
  return builtIn == defaults.end() || builtIn->second != *stored;
}

bool UserPreferences::hasCustomTemperature(const std::string& mode) const {
  const auto stored = storedObject(modeTemperaturesKey).numberAt(mode);
  if (!stored) return false;
  const auto& defaults = defaultTemperatures();
  const auto builtIn = defaults.find(mode);
  return std::abs(*stored - (builtIn == defaults.end() ? 0.5 : builtIn->second)) > 0.01;
}

std::optional<Json> UserPreferences::userArchetype() const {
  Json stored = storedObject(userArchetypeKey);
  if (stored.isNull()) return std::nullopt;
  return stored;
}

void UserPreferences::setUserArchetype(const std::optional<Json>& archetype) {
  if (archetype && archetype->isObject()) {
    settings_.set(userArchetypeKey, *archetype);
  } else {
    settings_.remove(userArchetypeKey);
  }
}

std::string UserPreferences::displayLocation() const {
  for (const char* key : {userLocationKey, userCityKey}) {
    std::string place = settings_.string(key);
    if (!place.empty()) return place;
  }
  return noLocation;
}

}  // namespace kestrin
