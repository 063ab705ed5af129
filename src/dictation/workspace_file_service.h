#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "dictation/languages.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"

namespace kestrin {

struct WorkspaceFile {
  std::string name;
  std::string path;
  std::string relativePath;  ///< behind the workspace's root
  FileType type = FileType::other;
};

/// Finds the project that a code editor shows, and lists its files. Reads the disk: off the main
/// queue. Thread-safe.
class WorkspaceFileService {
 public:
  static constexpr std::chrono::seconds cacheDuration{60};
  static constexpr size_t maxFiles = 500;

  WorkspaceFileService(Dispatch& dispatch, Files& files, Logger& logger)
      : dispatch_(dispatch), files_(files), logger_(logger) {}

  /// Words that code editors' names hold.
  static const std::vector<std::string>& codeEditorApps();
  /// Whether the application is one of them, in any case.
  static bool isCodeEditorName(const std::string& appName);

  /// The project's folder, looked for by the name in the title under the usual roots.
  std::optional<std::string> extractWorkspacePath(const std::string& windowTitle,
                                                  const std::string& appName);
  /// Source files under `path`, hidden and generated ones left out; at most `maxFiles`. The last
  /// answer is kept for a minute.
  std::vector<WorkspaceFile> scanWorkspace(const std::string& path);

 private:
  std::vector<WorkspaceFile> enumerate(const std::string& root);

  Dispatch& dispatch_;
  Files& files_;
  Logger& logger_;
  std::mutex mutex_;
  std::optional<std::string> cachedWorkspacePath_;
  std::vector<WorkspaceFile> cachedFiles_;
  std::optional<SteadyTime> lastScanTime_;
};

}  // namespace kestrin
