#include <iostream>

#include "cli/commands.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

void warn(const std::string& line) { std::cerr << "kestrin: " << line << "\n"; }

/// Texts stand without quotes, everything else as JSON.
std::string shown(const Json& value) {
  const auto text = value.asString();
  return text ? *text : value.dump();
}

}  // namespace

int settingsGet(const std::string& key) {
  LinuxPlatform backends(warn);
  const auto value = backends.platform().settings.get(key);
  if (!value) {
    warn("\"" + key + "\" is not set");
    return failed;
  }
  std::cout << shown(*value) << "\n";
  return done;
}

int settingsSet(const std::string& key, const std::string& value) {
  LinuxPlatform backends(warn);
  const auto parsed = Json::parse(value);
  backends.platform().settings.set(key, parsed ? *parsed : Json(value));
  return done;
}

int settingsList(bool json) {
  LinuxPlatform backends(warn);
  auto& settings = backends.platform().settings;
  auto all = Json::object();
  for (const auto& key : settings.keys()) {
    const auto value = settings.get(key).value_or(Json());
    if (json) {
      all.set(key, value);
    } else {
      std::cout << key << " = " << shown(value) << "\n";
    }
  }
  if (json) std::cout << all.dump() << "\n";
  return done;
}

int settingsReset(const std::optional<std::string>& key) {
  LinuxPlatform backends(warn);
  auto& settings = backends.platform().settings;
  for (const auto& each : key ? std::vector<std::string>{*key} : settings.keys()) {
    settings.remove(each);
  }
  return done;
}

}  // namespace kestrin::cli
