#pragma once

#include <mutex>
#include <string>

#include "platform/settings.h"
#include "platform/system_controls.h"

namespace kestrin {

/// Which computer this is: tells settings that were carried over from another machine (a restored
/// home folder) from those of this one. Thread-safe; the first reading may block.
class MachineIdentity {
 public:
  /// Settings key under which setup stores the machine id.
  static constexpr const char* setupMachineKey = "nibo_setup_machine_id";

  MachineIdentity(SystemControls& controls, SettingsStore& settings)
      : controls_(controls), settings_(settings) {}

  /// Never empty; "unknown-" and the host name where the machine has no id. The same for the life
  /// of the process.
  std::string machineId();
  /// Setup was completed on this very machine.
  bool isSetupMachineMatch();

 private:
  SystemControls& controls_;
  SettingsStore& settings_;
  std::mutex mutex_;
  std::string machineId_;
};

}  // namespace kestrin
