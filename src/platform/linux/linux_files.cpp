#include "platform/linux/linux_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <pwd.h>
#include <sys/random.h>
#include <sys/stat.h>

#include "platform/linux/atomic_file.h"
#include "platform/linux/posix_error.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

tl::unexpected<Error> failure(const std::string& path) {
  return fail(posixError("Files", path, errno));
}

/// Calls `take` for each block until the end of the file.
template <class Take>
Status readBlocks(const std::string& path, Take take) {
  const Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.valid()) return failure(path);
  std::string block(1u << 18, '\0');
  for (;;) {
    const ssize_t got = ::read(fd.get(), block.data(), block.size());
    if (got == 0) return {};
    if (got < 0) {
      if (errno == EINTR) continue;
      return failure(path);
    }
    if (Status taken = take(std::string_view(block.data(), static_cast<size_t>(got))); !taken) {
      return taken;
    }
  }
}

FileInfo infoOf(const std::string& path, const struct stat& status) {
  FileInfo info;
  info.path = path;
  info.isDirectory = S_ISDIR(status.st_mode);
  info.isRegularFile = S_ISREG(status.st_mode);
  info.size = static_cast<uint64_t>(status.st_size);
  info.modified = Date(
      std::chrono::duration_cast<Date::duration>(std::chrono::seconds(status.st_mtim.tv_sec) +
                                                 std::chrono::nanoseconds(status.st_mtim.tv_nsec)));
  return info;
}

std::string environmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

/// The XDG rules: a relative path in a variable counts as unset.
std::string xdgFolder(const char* variable, const std::string& fallback) {
  std::string path = environmentValue(variable);
  if (path.empty() || path[0] != '/') path = fallback;
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

bool isOwnFolder(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::getuid();
}

}  // namespace

Result<Bytes> LinuxFiles::read(const std::string& path) {
  Bytes content;
  const Status done = readBlocks(path, [&content](std::string_view block) {
    content += block;
    return Status();
  });
  if (!done) return fail(done.error());
  return content;
}

Status LinuxFiles::writeAtomic(const std::string& path, std::string_view content) {
  auto file = AtomicFile::create(path);
  if (!file) return fail(file.error());
  if (const auto written = file->write(content); !written) return written;
  return file->commit();
}

Status LinuxFiles::append(const std::string& path, std::string_view content) {
  if (const auto made = makeFolders(folderOf(path)); !made) return made;
  const Descriptor fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  if (!fd.valid()) return failure(path);
  return writeAll(fd.get(), content, path);
}

std::optional<FileInfo> LinuxFiles::info(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {};
  return infoOf(path, status);
}

Result<std::vector<FileInfo>> LinuxFiles::list(const std::string& folder) {
  struct Close {
    void operator()(DIR* open) const { ::closedir(open); }
  };
  const std::unique_ptr<DIR, Close> open(::opendir(folder.c_str()));
  if (!open) return failure(folder);
  std::vector<FileInfo> entries;
  errno = 0;
  while (const dirent* entry = ::readdir(open.get())) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    const std::string path = (folder == "/" ? "" : folder) + "/" + std::string(name);
    struct stat status {};
    // A dangling link is an entry as well; what vanished meanwhile is none.
    if (::stat(path.c_str(), &status) == 0 || ::lstat(path.c_str(), &status) == 0) {
      entries.push_back(infoOf(path, status));
    }
    errno = 0;
  }
  if (errno != 0) return failure(folder);
  std::sort(entries.begin(), entries.end(),
            [](const FileInfo& a, const FileInfo& b) { return a.path < b.path; });
  return entries;
}

Status LinuxFiles::createFolders(const std::string& path) { return makeFolders(path); }

Status LinuxFiles::remove(const std::string& path) {
  if (std::remove(path.c_str()) != 0) return failure(path);
  return {};
}

Status LinuxFiles::rename(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) != 0) return failure(from);
  return {};
}

Status LinuxFiles::copy(const std::string& from, const std::string& to) {
  auto file = AtomicFile::create(to);
  if (!file) return fail(file.error());
  const Status copied =
      readBlocks(from, [&file](std::string_view block) { return file->write(block); });
  if (!copied) return copied;
  return file->commit();
}

std::string LinuxFiles::home() {
  const std::string fromEnvironment = xdgFolder("HOME", "");
  if (!fromEnvironment.empty()) return fromEnvironment;
  passwd entry{};
  passwd* found = nullptr;
  std::string buffer(16'384, '\0');
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found ? found->pw_dir : "/";
}

std::string LinuxFiles::dataFolder() {
  return xdgFolder("XDG_DATA_HOME", home() + "/.local/share");
}
std::string LinuxFiles::cacheFolder() { return xdgFolder("XDG_CACHE_HOME", home() + "/.cache"); }
std::string LinuxFiles::configFolder() { return xdgFolder("XDG_CONFIG_HOME", home() + "/.config"); }
std::string LinuxFiles::stateFolder() {
  return xdgFolder("XDG_STATE_HOME", home() + "/.local/state");
}

std::string LinuxFiles::runtimeFolder() {
  const std::string usual = "/run/user/" + std::to_string(::getuid());
  std::string folder = xdgFolder("XDG_RUNTIME_DIR", isOwnFolder(usual) ? usual : "");
  if (!folder.empty()) return folder;
  // Not under /tmp: anybody could have made the folder there before us.
  folder = cacheFolder() + "/kestrin-run";
  [[maybe_unused]] const Status made = makeFolders(folder);  // the user of the folder finds out
  return folder;
}

std::string LinuxFiles::desktopFolder() { return userFolder("XDG_DESKTOP_DIR", "Desktop"); }
std::string LinuxFiles::documentsFolder() { return userFolder("XDG_DOCUMENTS_DIR", "Documents"); }

std::string LinuxFiles::userFolder(std::string_view key, const std::string& fallback) {
  const auto content = read(configFolder() + "/user-dirs.dirs");
  for (const std::string& raw : text::split(content.value_or(""), "\n")) {
    // KEY="$HOME/Bureau" or KEY="/absolute".
    const std::string line = text::trim(raw);
    const std::string start = std::string(key) + "=\"";
    if (line.compare(0, start.size(), start) != 0 || line.back() != '"' ||
        line.size() <= start.size()) {
      continue;
    }
    std::string path = line.substr(start.size(), line.size() - start.size() - 1);
    if (path.compare(0, 5, "$HOME") == 0) path = home() + path.substr(5);
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (!path.empty() && path[0] == '/') return path;
  }
  return home() + "/" + fallback;
}

Bytes LinuxRandom::bytes(size_t count) {
  Bytes out(count, '\0');
  size_t done = 0;
  while (done < count) {
    const ssize_t got = ::getrandom(out.data() + done, count - done, 0);
    // The only failure with these arguments is an interruption.
    if (got > 0) done += static_cast<size_t>(got);
  }
  return out;
}

}  // namespace kestrin
