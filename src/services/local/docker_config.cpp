#include "services/local/docker_config.h"

#include <algorithm>

#include "platform/json/json.h"

namespace kestrin {
namespace {

/// With the keys of every object in order, as people compare such files.
Json sorted(const Json& value) {
  if (value.isArray()) {
    Json::Array items;
    for (const Json& item : value.items()) items.push_back(sorted(item));
    return Json(std::move(items));
  }
  if (!value.isObject()) return value;
  auto members = value.members();
  std::sort(members.begin(), members.end(),
            [](const auto& a, const auto& b) { return a.first < b.first; });
  auto out = Json::object();
  for (const auto& [key, member] : members) out.set(key, sorted(member));
  return out;
}

}  // namespace

void fixDockerCredentialConfig(Files& files, Processes& processes,
                               const std::function<void(const std::string&)>& print,
                               const std::function<void(const std::string&)>& tell) {
  const std::string path = files.home() + "/.docker/config.json";
  if (!files.exists(path)) return;
  const auto failed = [&print](const Error& error) {
    print("⚠️ Could not fix Docker config: " + error.description);
  };
  const auto content = files.read(path);
  if (!content) return failed(content.error());
  auto config = Json::parse(*content);
  if (!config) return failed(config.error());
  const std::string helper = config->stringAt("credsStore", "");
  if (helper.empty() || processes.find("docker-credential-" + helper)) return;
  print("⚠️ Fixing Docker config: removing missing credential helper '" + helper + "'");
  tell("Fixing Docker credential config...");
  config->erase("credsStore");
  if (const auto written = files.writeAtomic(path, sorted(*config).dumpPretty() + "\n"); !written)
    return failed(written.error());
  print("✅ Docker config fixed");
  tell("Docker config updated");
}

}  // namespace kestrin
