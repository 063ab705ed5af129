#include "platform/settings.h"

namespace kestrin {

std::string SettingsStore::string(std::string_view key, std::string_view fallback) const {
  const auto value = get(key);
  const std::string* text = value ? value->stringPtr() : nullptr;
  return text ? *text : std::string(fallback);
}

void SettingsStore::countUp(std::string_view key) {
  set(key, Json(get(key).value_or(Json()).asInt().value_or(0) + 1));
}

bool SettingsStore::boolean(std::string_view key, bool fallback) const {
  const auto value = get(key);
  return value ? value->asBool().value_or(fallback) : fallback;
}

double SettingsStore::number(std::string_view key, double fallback) const {
  const auto value = get(key);
  return value ? value->asNumber().value_or(fallback) : fallback;
}

}  // namespace kestrin
