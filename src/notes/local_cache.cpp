#include "notes/local_cache.h"

namespace kestrin {
namespace {

constexpr const char* folder = "/Kestrin/Cache/";
constexpr const char* historyFile = "history.json";

}  // namespace

std::optional<std::string> LocalCache::path(std::string_view name) {
  const std::string base = files_.dataFolder();
  if (base.empty()) return std::nullopt;
  return base + folder + std::string(name);
}

void LocalCache::save(std::string_view name, std::string_view what, std::string_view bytes) {
  const auto target = path(name);
  if (!target) return;
  if (const Status written = files_.writeAtomic(*target, bytes); !written) {
    logger_.print("⚠️ Failed to cache " + std::string(what) + ": " +
                  written.error().description);
  }
}

void LocalCache::saveHistoryResponseData(std::string_view bytes) {
  save(historyFile, "history", bytes);
}

std::optional<Json::Array> LocalCache::history() {
  const auto source = path(historyFile);
  if (!source) return std::nullopt;
  const auto bytes = files_.read(*source);
  return bytes ? historyIn(*bytes) : std::nullopt;
}

bool LocalCache::removeHistory() {
  const auto target = path(historyFile);
  return !target || !files_.exists(*target) || files_.remove(*target).has_value();
}

std::optional<Json::Array> LocalCache::historyIn(std::string_view bytes) {
  const auto answer = Json::parse(bytes);
  return answer ? answer->objectListAt("history") : std::nullopt;
}

}  // namespace kestrin
