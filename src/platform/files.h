#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bytes.h"
#include "platform/dates/dates.h"
#include "platform/result.h"

namespace kestrin {

struct FileInfo {
  std::string path;
  bool isDirectory = false;
  bool isRegularFile = false;
  uint64_t size = 0;
  Date modified;
};

/// The file system and the user's folders. Blocking; thread-safe. Errors: domain "Files", code =
/// errno, description with the path.
class Files {
 public:
  virtual ~Files() = default;

  virtual Result<Bytes> read(const std::string& path) = 0;
  /// Writes a temporary file beside `path`, syncs it and renames it over: a reader or a crash sees
  /// the old content or the new one. Creates missing folders (0700). The file gets mode 0600.
  virtual Status writeAtomic(const std::string& path, std::string_view content) = 0;
  virtual Status append(const std::string& path, std::string_view content) = 0;
  virtual std::optional<FileInfo> info(const std::string& path) = 0;
  bool exists(const std::string& path) { return info(path).has_value(); }
  /// Entries of a folder, sorted by name, without "." and "..".
  virtual Result<std::vector<FileInfo>> list(const std::string& folder) = 0;
  virtual Status createFolders(const std::string& path) = 0;
  virtual Status remove(const std::string& path) = 0;
  virtual Status rename(const std::string& from, const std::string& to) = 0;
  virtual Status copy(const std::string& from, const std::string& to) = 0;

  /// $HOME, and the XDG folders (with the usual fall-backs). Without a trailing slash.
  virtual std::string home() = 0;
  virtual std::string dataFolder() = 0;     ///< $XDG_DATA_HOME, "Application Support"
  virtual std::string cacheFolder() = 0;    ///< $XDG_CACHE_HOME
  virtual std::string configFolder() = 0;   ///< $XDG_CONFIG_HOME
  virtual std::string stateFolder() = 0;    ///< $XDG_STATE_HOME
  virtual std::string runtimeFolder() = 0;  ///< $XDG_RUNTIME_DIR
  /// The user's desktop and documents folders (user-dirs.dirs).
  virtual std::string desktopFolder() = 0;
  virtual std::string documentsFolder() = 0;
};

/// Random numbers for identifiers. Thread-safe.
class Random {
 public:
  virtual ~Random() = default;
  virtual Bytes bytes(size_t count) = 0;
  /// Canonical upper-case text of a version 4 UUID.
  std::string uuid();
};

}  // namespace kestrin
