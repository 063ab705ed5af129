#pragma once

#include <string>
#include <string_view>

#include "platform/linux/descriptor.h"
#include "platform/result.h"

namespace kestrin {

/// A file that becomes visible whole or not at all: written beside its final name with mode 0600,
/// synced, then renamed over it. Without `commit` nothing remains. Errors: domain "Files", code =
/// errno.
class AtomicFile {
 public:
  /// Creates missing folders (0700). A symbolic link at `path` is followed, so that it stays one.
  static Result<AtomicFile> create(const std::string& path);
  AtomicFile(AtomicFile&& other) noexcept;
  AtomicFile& operator=(AtomicFile&&) = delete;
  ~AtomicFile();

  Status write(std::string_view bytes);
  Status commit();

 private:
  AtomicFile(std::string path, std::string temporary, Descriptor fd);

  std::string path_, temporary_;  ///< temporary_ is empty once nothing is left to remove
  Descriptor fd_;
};

/// Makes a folder and those above it, each with mode 0700.
Status makeFolders(const std::string& path);
/// Writes all of `bytes`; `path` is for the error's text.
Status writeAll(int fd, std::string_view bytes, const std::string& path);
/// The part before the last slash ("." when there is none).
std::string folderOf(const std::string& path);

}  // namespace kestrin
