#include "platform/linux/atomic_file.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>

#include "platform/linux/posix_error.h"

namespace kestrin {
namespace {

tl::unexpected<Error> failure(const std::string& path, int number) {
  return fail(posixError("Files", path, number));
}

/// The path that a chain of links ends at; `path` itself when there is none.
std::string resolved(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? std::string(real.get()) : path;
}

}  // namespace

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

Status makeFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    if (::mkdir(part.c_str(), 0700) != 0) {
      const int number = errno;
      struct stat info {};
      // EROFS and EACCES come before EEXIST for folders that are there.
      const bool there = ::stat(part.c_str(), &info) == 0;
      if (!there) return failure(part, number);
      if (!S_ISDIR(info.st_mode)) return failure(part, ENOTDIR);
    }
    if (slash == std::string::npos) return {};
  }
}

Status writeAll(int fd, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return failure(path, errno);
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return {};
}

AtomicFile::AtomicFile(std::string path, std::string temporary, Descriptor fd)
    : path_(std::move(path)), temporary_(std::move(temporary)), fd_(std::move(fd)) {}

AtomicFile::AtomicFile(AtomicFile&& other) noexcept
    : path_(std::move(other.path_)),
      temporary_(std::exchange(other.temporary_, {})),
      fd_(std::move(other.fd_)) {}

AtomicFile::~AtomicFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

Result<AtomicFile> AtomicFile::create(const std::string& path) {
  const std::string target = resolved(path);
  if (const auto made = makeFolders(folderOf(target)); !made) return fail(made.error());
  std::string temporary = target + ".XXXXXX";
  Descriptor fd(::mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
  if (!fd.valid()) return failure(target, errno);
  return AtomicFile(target, std::move(temporary), std::move(fd));
}

Status AtomicFile::write(std::string_view bytes) { return writeAll(fd_.get(), bytes, path_); }

Status AtomicFile::commit() {
  if (::fsync(fd_.get()) != 0) return failure(path_, errno);
  if (::rename(temporary_.c_str(), path_.c_str()) != 0) return failure(path_, errno);
  temporary_.clear();
  fd_ = Descriptor();
  // The content is in place; syncing the name is a best effort that some file systems refuse.
  if (const Descriptor folder(::open(folderOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      folder.valid()) {
    ::fsync(folder.get());
  }
  return {};
}

}  // namespace kestrin
