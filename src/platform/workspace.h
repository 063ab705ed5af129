#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/result.h"
#include "platform/synthetic_input.h"

namespace kestrin {

struct RunningApplication {
  int pid = 0;
  std::string desktopId;  ///< lower-case desktop entry id without ".desktop"; may be empty
  std::string name;       ///< the entry's Name, else the window class
};

struct WindowInfo {
  uint64_t id = 0;
  int pid = 0;
  std::string title;
};

struct InstalledApplication {
  std::string desktopId;
  std::string name;
  std::string executable;
};

/// Running applications and their windows. Calls take some milliseconds; those that change
/// something wait for the effect under a deadline, so call them off the main queue. Thread-safe.
/// Errors: domain "Workspace".
class Workspace {
 public:
  virtual ~Workspace() = default;
  virtual std::optional<RunningApplication> frontmostApplication() = 0;
  virtual std::optional<RunningApplication> application(int pid) = 0;
  /// Front to back.
  virtual std::vector<WindowInfo> windows() = 0;
  virtual std::optional<WindowInfo> activeWindow() = 0;
  /// Brings the window to the front with the input focus; true once both hold.
  virtual Status activateWindow(uint64_t id) = 0;
  /// Activates the application's frontmost window.
  virtual Status activateApplication(int pid) = 0;
  virtual Result<Point> screenSize() = 0;

  virtual std::vector<InstalledApplication> installedApplications() = 0;
  /// By desktop id, name or executable, case-insensitive.
  virtual Status launch(const std::string& application) = 0;
  /// Asks the application's windows to close.
  virtual Status quitApplication(const std::string& application) = 0;
  /// http, https and mailto addresses, and existing paths, with the default handler.
  virtual Status open(const std::string& addressOrPath) = 0;
};

}  // namespace kestrin
