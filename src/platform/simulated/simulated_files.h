#pragma once

#include <map>
#include <mutex>
#include <set>

#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/simulated/fault_plan.h"

namespace kestrin {

/// A tree of files in memory with the folders of a user "/home/user", which exist at the beginning.
/// Fault sites: "files.read", "files.writeAtomic", "files.append", "files.list",
/// "files.createFolders", "files.remove", "files.rename", "files.copy" (EIO each).
class SimulatedFiles final : public Files {
 public:
  explicit SimulatedFiles(Clock& clock, FaultPlan* faults = nullptr);

  Result<Bytes> read(const std::string& path) override;
  Status writeAtomic(const std::string& path, std::string_view content) override;
  Status append(const std::string& path, std::string_view content) override;
  std::optional<FileInfo> info(const std::string& path) override;
  Result<std::vector<FileInfo>> list(const std::string& folder) override;
  Status createFolders(const std::string& path) override;
  Status remove(const std::string& path) override;
  Status rename(const std::string& from, const std::string& to) override;
  Status copy(const std::string& from, const std::string& to) override;

  std::string home() override { return "/home/user"; }
  std::string dataFolder() override { return home() + "/.local/share"; }
  std::string cacheFolder() override { return home() + "/.cache"; }
  std::string configFolder() override { return home() + "/.config"; }
  std::string stateFolder() override { return home() + "/.local/state"; }
  std::string runtimeFolder() override { return "/run/user/1000"; }
  std::string desktopFolder() override { return home() + "/Desktop"; }
  std::string documentsFolder() override { return home() + "/Documents"; }

  /// Bytes that all files together may hold; what would need more fails with ENOSPC.
  void setCapacity(uint64_t bytes);
  /// Everything below `folder` can be read only (EROFS).
  void makeReadOnly(const std::string& folder);
  /// Sets a file with its time, as if another program had written it.
  void put(const std::string& path, Bytes content, std::optional<Date> modified = {});

 private:
  struct Node {
    bool folder = false;
    Bytes content{};
    Date modified{};
  };

  Status writable(const std::string& path) const;
  Status makeFolders(const std::string& path);
  Status store(const std::string& path, Bytes content);
  Result<Bytes> contentOf(const std::string& path) const;
  tl::unexpected<Error> failure(const std::string& path, int number) const;
  bool hasChildren(const std::string& folder) const;

  Clock& clock_;
  FaultPlan* const faults_;
  mutable std::mutex mutex_;
  std::map<std::string, Node> nodes_;
  std::set<std::string> readOnly_;
  std::optional<uint64_t> capacity_;
};

/// The same numbers for the same seed.
class SimulatedRandom final : public Random {
 public:
  explicit SimulatedRandom(uint64_t seed) : state_(seed) {}
  Bytes bytes(size_t count) override;

 private:
  std::mutex mutex_;
  uint64_t state_;
};

}  // namespace kestrin
