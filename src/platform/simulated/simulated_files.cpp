#include "platform/simulated/simulated_files.h"

#include <cerrno>
#include <system_error>

namespace kestrin {
namespace {

std::string parentOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == 0 || slash == std::string::npos ? "/" : path.substr(0, slash);
}

bool isBelow(const std::string& path, const std::string& folder) {
  return path == folder || path.compare(0, folder.size() + 1, folder + "/") == 0;
}

}  // namespace

SimulatedFiles::SimulatedFiles(Clock& clock, FaultPlan* faults) : clock_(clock), faults_(faults) {
  nodes_["/"] = {.folder = true, .modified = clock_.wallNow()};
  for (const std::string& folder :
       {dataFolder(), cacheFolder(), configFolder(), stateFolder(), runtimeFolder(),
        desktopFolder(), documentsFolder(), std::string("/tmp")}) {
    [[maybe_unused]] const Status made = makeFolders(folder);  // cannot fail in an empty tree
  }
}

tl::unexpected<Error> SimulatedFiles::failure(const std::string& path, int number) const {
  return fail("Files", number, path + ": " + std::generic_category().message(number));
}

Status SimulatedFiles::writable(const std::string& path) const {
  for (const std::string& folder : readOnly_) {
    if (isBelow(path, folder)) return failure(path, EROFS);
  }
  return {};
}

bool SimulatedFiles::hasChildren(const std::string& folder) const {
  const auto next = nodes_.lower_bound(folder == "/" ? "/0" : folder + "/");
  return next != nodes_.end() && isBelow(next->first, folder);
}

Status SimulatedFiles::makeFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string part = path.substr(0, slash);
    const auto found = nodes_.find(part);
    if (found == nodes_.end()) {
      if (const auto allowed = writable(part); !allowed) return allowed;
      nodes_[part] = {.folder = true, .modified = clock_.wallNow()};
    } else if (!found->second.folder) {
      return failure(part, ENOTDIR);
    }
    if (slash == std::string::npos) return {};
  }
}

Status SimulatedFiles::store(const std::string& path, Bytes content) {
  if (const auto made = makeFolders(parentOf(path)); !made) return made;
  if (const auto allowed = writable(path); !allowed) return allowed;
  const auto found = nodes_.find(path);
  if (found != nodes_.end() && found->second.folder) return failure(path, EISDIR);
  if (capacity_) {
    uint64_t used = content.size();
    for (const auto& [other, node] : nodes_) used += other == path ? 0 : node.content.size();
    if (used > *capacity_) return failure(path, ENOSPC);
  }
  nodes_[path] = {.content = std::move(content), .modified = clock_.wallNow()};
  return {};
}

Result<Bytes> SimulatedFiles::contentOf(const std::string& path) const {
  const auto found = nodes_.find(path);
  if (found == nodes_.end()) return failure(path, ENOENT);
  if (found->second.folder) return failure(path, EISDIR);
  return found->second.content;
}

Result<Bytes> SimulatedFiles::read(const std::string& path) {
  if (faultDue(faults_, "files.read")) return failure(path, EIO);
  const std::lock_guard lock(mutex_);
  return contentOf(path);
}

Status SimulatedFiles::writeAtomic(const std::string& path, std::string_view content) {
  if (faultDue(faults_, "files.writeAtomic")) return failure(path, EIO);
  const std::lock_guard lock(mutex_);
  return store(path, Bytes(content));
}

Status SimulatedFiles::append(const std::string& path, std::string_view content) {
  if (faultDue(faults_, "files.append")) return failure(path, EIO);
  const std::lock_guard lock(mutex_);
  return store(path, contentOf(path).value_or("") + Bytes(content));
}

std::optional<FileInfo> SimulatedFiles::info(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto found = nodes_.find(path);
  if (found == nodes_.end()) return {};
  const Node& node = found->second;
  return FileInfo{path, node.folder, !node.folder, node.content.size(), node.modified};
}

Result<std::vector<FileInfo>> SimulatedFiles::list(const std::string& folder) {
  if (faultDue(faults_, "files.list")) return failure(folder, EIO);
  const std::lock_guard lock(mutex_);
  const auto found = nodes_.find(folder);
  if (found == nodes_.end()) return failure(folder, ENOENT);
  if (!found->second.folder) return failure(folder, ENOTDIR);
  std::vector<FileInfo> entries;
  for (const auto& [path, node] : nodes_) {
    if (path == "/" || parentOf(path) != folder) continue;
    entries.push_back({path, node.folder, !node.folder, node.content.size(), node.modified});
  }
  return entries;
}

Status SimulatedFiles::createFolders(const std::string& path) {
  if (faultDue(faults_, "files.createFolders")) return failure(path, EIO);
  const std::lock_guard lock(mutex_);
  return makeFolders(path);
}

Status SimulatedFiles::remove(const std::string& path) {
  if (faultDue(faults_, "files.remove")) return failure(path, EIO);
  const std::lock_guard lock(mutex_);
  if (nodes_.count(path) == 0) return failure(path, ENOENT);
  if (const auto allowed = writable(path); !allowed) return allowed;
  if (hasChildren(path)) return failure(path, ENOTEMPTY);
  nodes_.erase(path);
  return {};
}

Status SimulatedFiles::rename(const std::string& from, const std::string& to) {
  if (faultDue(faults_, "files.rename")) return failure(from, EIO);
  const std::lock_guard lock(mutex_);
  if (nodes_.count(from) == 0 || nodes_.count(parentOf(to)) == 0) return failure(from, ENOENT);
  for (const std::string& path : {from, to}) {
    if (const auto allowed = writable(path); !allowed) return allowed;
  }
  if (from == to) return {};
  if (isBelow(to, from)) return failure(from, EINVAL);
  if (const auto target = nodes_.find(to); target != nodes_.end()) {
    const bool movesFolder = nodes_[from].folder;
    if (target->second.folder != movesFolder) return failure(from, movesFolder ? ENOTDIR : EISDIR);
    if (hasChildren(to)) return failure(from, ENOTEMPTY);
    nodes_.erase(target);
  }
  std::map<std::string, Node> moved;
  for (auto node = nodes_.begin(); node != nodes_.end();) {
    if (isBelow(node->first, from)) {
      moved[to + node->first.substr(from.size())] = std::move(node->second);
      node = nodes_.erase(node);
    } else {
      ++node;
    }
  }
  nodes_.merge(moved);
  return {};
}

Status SimulatedFiles::copy(const std::string& from, const std::string& to) {
  if (faultDue(faults_, "files.copy")) return failure(from, EIO);
  const std::lock_guard lock(mutex_);
  auto content = contentOf(from);
  if (!content) return fail(content.error());
  return store(to, std::move(*content));
}

void SimulatedFiles::setCapacity(uint64_t bytes) {
  const std::lock_guard lock(mutex_);
  capacity_ = bytes;
}

void SimulatedFiles::makeReadOnly(const std::string& folder) {
  const std::lock_guard lock(mutex_);
  readOnly_.insert(folder);
}

void SimulatedFiles::put(const std::string& path, Bytes content, std::optional<Date> modified) {
  const std::lock_guard lock(mutex_);
  for (std::string folder = parentOf(path); nodes_.count(folder) == 0; folder = parentOf(folder)) {
    nodes_[folder] = {.folder = true, .modified = clock_.wallNow()};
  }
  nodes_[path] = {.content = std::move(content), .modified = modified.value_or(clock_.wallNow())};
}

Bytes SimulatedRandom::bytes(size_t count) {
  const std::lock_guard lock(mutex_);
  Bytes out;
  while (out.size() < count) {
    // SplitMix64: a good spread from any seed, zero included.
    uint64_t mixed = state_ += 0x9E3779B97F4A7C15u;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9u;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBu;
    mixed ^= mixed >> 31;
    for (int i = 0; i < 8 && out.size() < count; ++i, mixed >>= 8) {
      out += static_cast<char>(mixed & 0xFF);
    }
  }
  return out;
}

}  // namespace kestrin
