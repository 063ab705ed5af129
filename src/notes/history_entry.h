#pragma once

#include <string>

#include "platform/dates/dates.h"
#include "platform/json/json.h"

namespace kestrin {

/// One finished dictation, as the history shows it.
struct HistoryEntry {
  std::string id;  ///< new at each fetch: no identity from one to the next
  Date timestamp;
  std::string mode;
  std::string input;       ///< what was said
  std::string output;      ///< what came out
  std::string appContext;  ///< name of the application

  /// From the backend's record; what is missing there is `now`, "plain" or empty.
  static HistoryEntry fromServer(const Json& record, std::string id, Date now);
  /// As a program reads it; without the id.
  Json toJson() const;

  /// Two entries with the same key are the same dictation: the clock minute and the beginning of
  /// the output, whatever sign the status line put before it.
  std::string mergeKey() const;
};

}  // namespace kestrin
