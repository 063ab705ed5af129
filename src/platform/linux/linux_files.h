#pragma once

#include "platform/files.h"

namespace kestrin {

/// The file system, and the user's folders as the XDG rules give them (read at each call).
class LinuxFiles final : public Files {
 public:
  Result<Bytes> read(const std::string& path) override;
  Status writeAtomic(const std::string& path, std::string_view content) override;
  Status append(const std::string& path, std::string_view content) override;
  std::optional<FileInfo> info(const std::string& path) override;
  Result<std::vector<FileInfo>> list(const std::string& folder) override;
  Status createFolders(const std::string& path) override;
  Status remove(const std::string& path) override;
  Status rename(const std::string& from, const std::string& to) override;
  Status copy(const std::string& from, const std::string& to) override;

  std::string home() override;
  std::string dataFolder() override;
  std::string cacheFolder() override;
  std::string configFolder() override;
  std::string stateFolder() override;
  /// Without $XDG_RUNTIME_DIR: /run/user/UID, else a private folder under the cache.
  std::string runtimeFolder() override;
  std::string desktopFolder() override;
  std::string documentsFolder() override;

 private:
  std::string userFolder(std::string_view key, const std::string& fallback);
};

/// The kernel's random numbers.
class LinuxRandom final : public Random {
 public:
  Bytes bytes(size_t count) override;
};

}  // namespace kestrin
