#include "notes/local_cache.h"

#include <algorithm>

namespace kestrin {
namespace {

constexpr const char* folder = "/Kestrin/Cache/";
constexpr const char* historyFile = "history.json";
constexpr const char* notesFile = "notes.json";

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

void LocalCache::saveNotes(const std::vector<VoiceNote>& notes) {
  Json list = Json::array();
  for (const VoiceNote& note : notes) list.push(note.toJson());
  save(notesFile, "notes", list.dump());
}

std::optional<std::vector<VoiceNote>> LocalCache::notes() {
  const auto source = path(notesFile);
  const auto bytes = source ? files_.read(*source) : fail("LocalCache", 1, "No data folder");
  const auto list = bytes ? Json::parse(*bytes) : fail(bytes.error());
  if (!list || !list->isArray()) return std::nullopt;
  std::vector<VoiceNote> notes;
  for (const Json& each : list->items()) {
    if (auto note = VoiceNote::fromJson(each)) notes.push_back(std::move(*note));
  }
  return notes;
}

void LocalCache::replaceNote(const VoiceNote& note) {
  auto kept = notes();
  if (!kept) return;
  const auto found = std::find_if(kept->begin(), kept->end(),
                                  [&](const VoiceNote& each) { return each.id == note.id; });
  if (found == kept->end()) return;
  *found = note;
  saveNotes(*kept);
}

std::optional<Json::Array> LocalCache::historyIn(std::string_view bytes) {
  const auto answer = Json::parse(bytes);
  return answer ? answer->objectListAt("history") : std::nullopt;
}

}  // namespace kestrin
