#pragma once

#include <string>

#include "platform/files.h"
#include "platform/settings.h"

namespace kestrin {

/// What a user hands over with a complaint: the version, the day's log file and the preferences.
/// The secret key is in none of it: it lives in the secret store, the setting that a script may
/// have left it in is left out, and `secret` is taken out wherever else it was printed.
struct DebugReport {
  Files& files;
  SettingsStore& settings;
  /// As the secret store holds it; empty when there is none.
  std::string secret{};
  /// The dated file that this run writes (see `LogFileRedirector::path`).
  std::string logFile{};

  static std::string suggestedName(Date now);
  /// Blocking.
  std::string text(Date now) const;
  /// Writes it atomically. Blocking.
  Status write(const std::string& path, Date now) const {
    return files.writeAtomic(path, text(now));
  }
};

}  // namespace kestrin
