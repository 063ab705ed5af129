#include "usermodel/preferences/folder_storage.h"

#include "platform/text/text.h"

namespace kestrin {
namespace {

/// Links may lead in circles.
constexpr int deepest = 16;

uint64_t sizeBelow(Files& files, const std::string& folder, int depth) {
  uint64_t total = 0;
  const auto entries = files.list(folder);
  if (!entries || depth > deepest) return 0;
  for (const FileInfo& entry : *entries) {
    total += entry.isDirectory ? sizeBelow(files, entry.path, depth + 1) : entry.size;
  }
  return total;
}

void removeTree(Files& files, const std::string& path) {
  // A link counts as a folder in a list, but it goes away whole like a file does.
  if (files.remove(path)) return;
  for (const FileInfo& entry : files.list(path).value_or(std::vector<FileInfo>{})) {
    removeTree(files, entry.path);
  }
  (void)files.remove(path);
}

}  // namespace

std::string storageText(uint64_t bytes) {
  if (bytes == 0) return "0 KB";
  if (bytes < 1'000'000) return std::to_string((bytes + 999) / 1000) + " KB";
  const bool giga = bytes >= 1'000'000'000;
  return text::fixed(double(bytes) / (giga ? 1e9 : 1e6), 1) + (giga ? " GB" : " MB");
}

uint64_t folderSize(Files& files, const std::string& folder) { return sizeBelow(files, folder, 0); }

void emptyFolder(Files& files, const std::string& folder) {
  removeTree(files, folder);
  (void)files.createFolders(folder);
}

}  // namespace kestrin
