#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/files.h"
#include "platform/processes.h"

namespace kestrin {

/// Finds the container tool, and the commands with which this distribution installs and starts it.
/// Reads some files; no call waits for another process. Main queue only.
class DockerTool {
 public:
  /// How the daemon is started where it does not answer.
  struct StartCommand {
    std::string text;  ///< as one types it
    /// The program and its arguments when it needs no rights; otherwise the user types it.
    std::vector<std::string> words;
    bool isDesktop = false;  ///< of the desktop product, not of the system's daemon
  };

  static std::vector<std::string> usualPaths();

  DockerTool(Files& files, Processes& processes, std::vector<std::string> paths = usualPaths());

  /// The first of the paths that can be run, then what PATH finds; plain "docker" where nothing is.
  std::string dockerPath() const;
  bool isInstalled() const { return found().has_value(); }
  /// For the user's terminal, by the distribution of os-release.
  std::string installCommand() const;
  StartCommand startCommand() const;

 private:
  std::optional<std::string> found() const;

  Files& files_;
  Processes& processes_;
  const std::vector<std::string> paths_;
};

/// The command that installs the tool, from the text of os-release: by its ID, then by ID_LIKE.
std::optional<std::string> dockerInstallCommand(const std::string& osRelease);

}  // namespace kestrin
