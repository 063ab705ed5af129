// What goes along with a session: files and pinned items.
#include <algorithm>

#include "liveassist/live_assist_session_manager.h"

namespace kestrin {

void LiveAssistSessionManager::filesChanged() {
  syncFilesToBackend();
  if (const auto receiver = delegate.lock()) receiver->didUpdateFiles(*this, attachedFiles_);
}

void LiveAssistSessionManager::attachLocal(const std::string& path) {
  if (attachedFiles_.size() >= mostFiles) return;
  const auto info = files_.info(path);
  const auto file = LAAttachedFile::local(path, info ? static_cast<int64_t>(info->size) : 0);
  pathsSeen_[{file.name, file.size}] = path;
  attachedFiles_.push_back(file);
}

void LiveAssistSessionManager::attachDrive(const std::string& fileId, const std::string& name,
                                           int64_t size) {
  if (attachedFiles_.size() >= mostFiles) return;
  attachedFiles_.push_back(LAAttachedFile::drive(fileId, name, size));
}

void LiveAssistSessionManager::addLocalFiles(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) attachLocal(path);
  filesChanged();
}

void LiveAssistSessionManager::addDriveFile(const std::string& fileId, const std::string& name,
                                            int64_t size, const std::string& mimeType) {
  if (attachedFiles_.size() >= mostFiles) return;
  attachDrive(fileId, name, size);
  if (!mimeType.empty()) fileMimeTypes_[fileId] = mimeType;
  filesChanged();
}

void LiveAssistSessionManager::removeFile(size_t index) {
  if (index >= attachedFiles_.size()) return;
  attachedFiles_.erase(attachedFiles_.begin() + static_cast<ptrdiff_t>(index));
  filesChanged();
}

void LiveAssistSessionManager::setUseForContext(const std::string& fileId, bool useForContext) {
  const auto file = std::find_if(attachedFiles_.begin(), attachedFiles_.end(),
                                 [&](const LAAttachedFile& each) { return each.id == fileId; });
  if (file == attachedFiles_.end()) return;
  file->useForContext = useForContext;
  filesChanged();
}

std::string LiveAssistSessionManager::pathOf(const LAAttachedFile& stored) const {
  if (!stored.id.empty()) return stored.id;
  const auto seen = pathsSeen_.find({stored.name, stored.size});
  return seen == pathsSeen_.end() ? "" : seen->second;
}

void LiveAssistSessionManager::restoreFiles(const std::vector<LAAttachedFile>& files) {
  attachedFiles_.clear();
  for (const LAAttachedFile& file : files) {
    const size_t before = attachedFiles_.size();
    if (file.source == LAAttachedFileSource::drive) {
      attachDrive(file.id, file.name, file.size);
    } else if (const std::string path = pathOf(file); !path.empty() && files_.exists(path)) {
      attachLocal(path);
    }
    if (attachedFiles_.size() > before) attachedFiles_.back().useForContext = file.useForContext;
  }
  filesChanged();
}

void LiveAssistSessionManager::clearFilesAndPins() {
  attachedFiles_.clear();
  pinnedItems_.clear();
  filesChanged();
}

void LiveAssistSessionManager::addPinnedItem(const Json& item) {
  const auto id = item.stringAt("id");
  for (const Json& pinned : pinnedItems_) {
    if (id && pinned.stringAt("id") == id) return;
  }
  pinnedItems_.insert(pinnedItems_.begin(), item);
  if (pinnedItems_.size() > mostPins) pinnedItems_.resize(mostPins);
  syncFilesToBackend();
}

}  // namespace kestrin
