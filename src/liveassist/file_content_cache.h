#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/drive_client.h"
#include "liveassist/session_records.h"
#include "platform/files.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The contents of a session's files, read once: text, or bytes that only the backend can read.
/// Main queue only; what is read waits elsewhere.
class FileContentCache {
 public:
  static constexpr size_t mostTextCharacters = 1800;

  FileContentCache(Dispatch& dispatch, Files& files, Logger& logger, DriveClient& drive);

  /// Reads what is not there yet. `ready` runs once the files of this machine are in (at once, if
  /// they were); those of the Drive come when they come. A file that cannot be read counts as one
  /// without content until `clear`.
  void ensureFileContentCached(const std::vector<LAAttachedFile>& files,
                               const std::map<std::string, std::string>& mimeTypes,
                               std::function<void()> ready);
  /// As a refresh sends them; a file without content is left out.
  std::vector<Json> documents(const std::vector<LAAttachedFile>& files) const;
  void clear();

 private:
  struct Binary {
    Bytes bytes;
    std::string mimeType;
  };
  struct Local {
    std::string id, name, path;
    std::string binaryType;  ///< empty: text
    Result<Bytes> content;
  };
  void fetchDrive(const LAAttachedFile& file, const std::string& mimeType);
  void keep(const Local& read);

  Dispatch& dispatch_;
  Files& files_;
  Logger& logger_;
  DriveClient& drive_;
  std::map<std::string, std::string> fileContentCache_;  ///< "" where there is no text
  std::map<std::string, Binary> fileBinaryCache_;
  std::set<std::string> reading_;
  int session_ = 0;  ///< what a `clear` has made old is dropped
  Lifetime lifetime_;
};

}  // namespace kestrin
