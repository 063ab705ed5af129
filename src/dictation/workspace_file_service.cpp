#include "dictation/workspace_file_service.h"

#include <algorithm>
#include <array>

#include "dictation/editor_title.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr std::array<std::string_view, 19> codeExtensions{
    "swift", "ts",   "tsx", "js", "jsx", "py",   "json", "md", "css", "scss",
    "html",  "yaml", "yml", "go", "rs",  "java", "kt",   "rb", "php"};

/// Folders of other people's and of generated code.
constexpr std::array<std::string_view, 7> skippedFolders{
    "/node_modules/", "/.git/", "/build/", "/dist/", "/.next/", "/__pycache__/", "/venv/"};

/// Bounds the work in a folder that is no project at all; also ends circles of links.
constexpr size_t maxFolders = 4000;

bool isSkipped(const std::string& path) {
  return std::any_of(skippedFolders.begin(), skippedFolders.end(),
                     [&](std::string_view part) { return path.find(part) != path.npos; });
}

bool isCode(const std::string& name) {
  const auto extension = text::lower(pathExtension(name));
  return std::find(codeExtensions.begin(), codeExtensions.end(), extension) != codeExtensions.end();
}

std::string baseName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

const std::vector<std::string>& WorkspaceFileService::codeEditorApps() {
  static const std::vector<std::string> names{
      "Cursor", "Code", "Visual Studio Code", "VSCode", "VSCodium", "Xcode",
      // Those that stand on Linux desktops besides.
      "IntelliJ", "WebStorm", "PyCharm", "CLion", "GoLand", "PhpStorm", "RubyMine", "Rider",
      "Android Studio", "Sublime Text", "Zed", "KDevelop", "Kate", "Geany", "Qt Creator"};
  return names;
}

bool WorkspaceFileService::isCodeEditorName(const std::string& appName) {
  const auto lower = text::lower(appName);
  const auto& names = codeEditorApps();
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    return text::contains(lower, text::lower(name));
  });
}

std::optional<std::string> WorkspaceFileService::extractWorkspacePath(
    const std::string& windowTitle, const std::string& appName) {
  if (!text::containsAny(appName, codeEditorApps())) return std::nullopt;
  const auto folder = parseEditorTitle(windowTitle, text::lower(appName)).folder;
  if (!folder) return std::nullopt;

  const auto folderAt = [&](const std::string& path) {
    const auto info = files_.info(path);
    return info && info->isDirectory;
  };
  const auto home = files_.home();
  std::vector<std::string> roots{files_.desktopFolder(), files_.documentsFolder()};
  for (const char* name : {"Projects", "Developer", "src", "code", "git", "work"}) {
    roots.push_back(home + "/" + name);
  }
  roots.push_back(home);
  for (const auto& root : roots) {
    if (const auto direct = root + "/" + *folder; folderAt(direct)) return direct;
    for (const auto& entry : files_.list(root).value_or(std::vector<FileInfo>{})) {
      if (!entry.isDirectory) continue;
      if (const auto nested = entry.path + "/" + *folder; folderAt(nested)) return nested;
    }
  }
  return std::nullopt;
}

std::vector<WorkspaceFile> WorkspaceFileService::scanWorkspace(const std::string& path) {
  const std::lock_guard lock(mutex_);
  const auto now = dispatch_.clock().steadyNow();
  if (cachedWorkspacePath_ == path && lastScanTime_ && now - *lastScanTime_ < cacheDuration) {
    return cachedFiles_;
  }
  cachedFiles_ = enumerate(path);
  cachedWorkspacePath_ = path;
  lastScanTime_ = dispatch_.clock().steadyNow();
  logger_.print("📁 Scanned " + std::to_string(cachedFiles_.size()) +
                " files in workspace: " + path);
  return cachedFiles_;
}

std::vector<WorkspaceFile> WorkspaceFileService::enumerate(const std::string& root) {
  std::vector<WorkspaceFile> found;
  std::vector<std::string> folders{root};
  for (size_t visited = 0; !folders.empty() && visited < maxFolders; ++visited) {
    const auto folder = folders.back();
    folders.pop_back();
    const auto entries = files_.list(folder).value_or(std::vector<FileInfo>{});
    std::vector<std::string> inner;
    for (const auto& entry : entries) {
      const auto name = baseName(entry.path);
      if (name.starts_with(".")) continue;
      if (entry.isDirectory) {
        if (!isSkipped(entry.path + "/")) inner.push_back(entry.path);
        continue;
      }
      if (!entry.isRegularFile || !isCode(name) || isSkipped(entry.path)) continue;
      found.push_back({name, entry.path, entry.path.substr(root.size() + 1),
                       fileTypeFromExtension(pathExtension(name))});
      if (found.size() == maxFiles) return found;
    }
    folders.insert(folders.end(), inner.rbegin(), inner.rend());
  }
  return found;
}

}  // namespace kestrin
