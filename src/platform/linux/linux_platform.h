#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/dispatch/threads.h"
#include "platform/platform.h"

namespace kestrin {

/// Where this process can show windows and see keys.
enum class DisplaySession { x11, wayland, none };
/// By the environment.
DisplaySession displaySession();

/// Folder of this program's executable.
std::string programFolder();
/// Path of one of our other programs: beside this one, else as PATH finds it.
std::string siblingProgram(const std::string& name);

/// Every real backend, chosen for the session that the process runs in. Making it opens no
/// connection: each backend connects when it is first used.
class LinuxPlatform {
 public:
  /// The thread that makes it is the main thread. `warn` gets a line when the settings file is
  /// broken.
  explicit LinuxPlatform(std::function<void(std::string)> warn);
  ~LinuxPlatform();

  Platform& platform();
  MainLoop& mainLoop();
  /// Ends every background job; call it before what the jobs use is destroyed.
  void endJobs();

 private:
  struct Backends;
  std::unique_ptr<Backends> backends_;
};

}  // namespace kestrin
