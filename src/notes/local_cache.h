#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/logger.h"
#include "notes/voice_note.h"
#include "platform/files.h"
#include "platform/json/json.h"

namespace kestrin {

/// The backend's last good answers on disk (0600, replaced whole), so that they still show when it
/// cannot be reached. A file that cannot be written costs a line in the log and nothing more; one
/// that cannot be read or holds something else counts as absent and stays until the next good
/// answer. Blocking; thread-safe.
class LocalCache {
 public:
  LocalCache(Files& files, Logger& logger) : files_(files), logger_(logger) {}

  /// Keeps a history answer's bytes as they came.
  void saveHistoryResponseData(std::string_view bytes);
  /// The list in the answer that was kept last.
  std::optional<Json::Array> history();
  /// True when nothing is left.
  bool removeHistory();

  /// The voice notes of the last good answer.
  void saveNotes(const std::vector<VoiceNote>& notes);
  std::optional<std::vector<VoiceNote>> notes();
  /// Puts `note` in the place of the one with its id, if there is one.
  void replaceNote(const VoiceNote& note);

  /// The history list of an answer: the objects under `history`, or nothing when that is no list.
  static std::optional<Json::Array> historyIn(std::string_view bytes);

 private:
  /// Nothing without a data folder.
  std::optional<std::string> path(std::string_view name);
  void save(std::string_view name, std::string_view what, std::string_view bytes);

  Files& files_;
  Logger& logger_;
};

}  // namespace kestrin
