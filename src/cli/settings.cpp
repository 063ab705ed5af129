#include <iostream>
#include <map>

#include "cli/commands.h"
#include "identity/gemini_key_manager.h"
#include "platform/linux/linux_platform.h"
#include "platform/text/text.h"
#include "usermodel/preference_table.h"

namespace kestrin::cli {
namespace {

constexpr const char* launchAtLoginSetting = "pref_launchAtLogin";

void warn(const std::string& line) { std::cerr << "kestrin: " << line << "\n"; }

/// Texts stand without quotes, everything else as JSON.
std::string shown(const Json& value) {
  const auto text = value.asString();
  return text ? *text : value.dump();
}

int outcome(const Status& status) {
  if (status) return done;
  warn(status.error().description);
  return failed;
}

/// What a program that is not the window has to do itself where a setting is more than a value.
class Store {
 public:
  Store() {
    logger_.setSink([](std::string_view line) { warn(std::string(line)); });
  }
  std::optional<Json> get(const std::string& key) {
    if (key != GeminiKeyManager::settingKey) return settings_.get(key);
    const std::string secret = geminiKey_.apiKey();
    return secret.empty() ? std::nullopt : std::optional<Json>(secret);
  }
  Status set(const std::string& key, const Json& value) {
    if (key == GeminiKeyManager::settingKey) return saveSecret(value.asString().value_or(""));
    settings_.set(key, value);
    if (auto stored = settings_.flush(); !stored || key != launchAtLoginSetting) return stored;
    return platform_.loginItem.setEnabled(value.asBool().value_or(false));
  }
  Status remove(const std::string& key) {
    if (key == GeminiKeyManager::settingKey && !geminiKey_.apiKey().empty()) {
      if (auto removed = saveSecret(""); !removed) return removed;
    }
    settings_.remove(key);
    if (auto stored = settings_.flush(); !stored || key != launchAtLoginSetting) return stored;
    return platform_.loginItem.setEnabled(false);
  }
  std::vector<std::string> keys() { return settings_.keys(); }

 private:
  Status saveSecret(const std::string& text) {
    if (!platform_.secrets.persistent()) {
      return fail("KeychainHelper", 1, "There is no secret store that could keep the key");
    }
    geminiKey_.save(text);
    // Asked afresh: the helper answers from its own memory.
    KeychainHelper again(platform_.secrets, logger_);
    if (GeminiKeyManager(again, settings_).apiKey() == text::trim(text)) return {};
    return fail("KeychainHelper", 2, "The secret store did not keep the key");
  }

  LinuxPlatform backends_{warn};
  Platform& platform_ = backends_.platform();
  SettingsStore& settings_ = platform_.settings;
  Logger logger_{platform_.dispatch, platform_.notifications};
  KeychainHelper keychain_{platform_.secrets, logger_};
  GeminiKeyManager geminiKey_{keychain_, settings_};
};

std::optional<Json> fallbackOf(const std::string& key) {
  const Preference* known = findPreference(key);
  if (!known || known->fallback.isNull() || known->fallback == Json("")) return {};
  return known->fallback;
}

}  // namespace

int settingsGet(const std::string& key) {
  auto value = Store().get(key);
  if (!value) value = fallbackOf(key);
  if (!value) {
    warn("\"" + key + "\" is not set");
    return failed;
  }
  std::cout << shown(*value) << "\n";
  return done;
}

int settingsSet(const std::string& key, const std::string& value) {
  const auto accepted = settingFromText(key, value);
  if (!accepted) {
    warn(accepted.error().description);
    return failed;
  }
  return outcome(Store().set(key, *accepted));
}

int settingsList(bool everything, bool json) {
  Store store;
  std::map<std::string, Json> values;
  if (everything) {
    for (const auto& each : preferences()) values[each.key] = each.fallback;
    for (const auto& [key, type] : otherSettings()) values[key] = Json();
  }
  for (const auto& key : store.keys()) {
    // A secret is printed when it is asked for by name only.
    if (key != GeminiKeyManager::settingKey) values[key] = store.get(key).value_or(Json());
  }
  auto all = Json::object();
  for (const auto& [key, value] : values) {
    if (json) {
      all.set(key, value);
    } else {
      std::cout << key << " = " << (value.isNull() ? "(not set)" : shown(value)) << "\n";
    }
  }
  if (json) std::cout << all.dump() << "\n";
  return done;
}

int settingsReset(const std::optional<std::string>& key) {
  Store store;
  if (key) return outcome(store.remove(*key));
  Status last;
  for (const auto& each : store.keys()) {
    // What the user is and has set up is not a preference.
    if (each.rfind(preferencePrefix, 0) != 0) continue;
    if (auto removed = store.remove(each); !removed) last = removed;
  }
  return outcome(last);
}

}  // namespace kestrin::cli
