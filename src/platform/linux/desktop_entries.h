#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/workspace.h"

namespace kestrin {

/// What is known of a window's program from which its desktop entry can be found.
struct ProgramTraits {
  int pid = 0;
  std::string applicationId;  ///< what the window itself names; may be empty
  std::string className;      ///< WM_CLASS: class and instance
  std::string instanceName;
};

/// The desktop entries of the system, through GIO. Thread-safe. Errors: domain "Workspace".
class DesktopEntries {
 public:
  DesktopEntries();
  ~DesktopEntries();

  std::vector<InstalledApplication> installed();
  /// The entry of a running program: what it was launched from, what its window names, the window
  /// class, its executable, in this order.
  std::optional<InstalledApplication> entryOf(const ProgramTraits& traits);
  /// By desktop id, name or executable, in any case.
  std::optional<InstalledApplication> find(const std::string& application);
  Status launch(const std::string& application);
  static Status open(const std::string& addressOrPath);

 private:
  struct Entry;
  using List = std::shared_ptr<const std::vector<Entry>>;
  List list(bool fresh);
  template <class Wanted>
  std::optional<Entry> search(Wanted wanted);

  std::mutex mutex_;
  List list_;
  std::chrono::steady_clock::time_point readAt_{};
};

/// Base name of the program's executable; empty when the process is gone or another user's.
std::string executableOf(int pid);

}  // namespace kestrin
