#include "identity/machine_identity.h"

namespace kestrin {

std::string MachineIdentity::machineId() {
  std::lock_guard lock(mutex_);
  if (machineId_.empty()) {
    const auto id = controls_.machineId();
    machineId_ = id && !id->empty() ? *id : "unknown-" + controls_.hostName();
  }
  return machineId_;
}

bool MachineIdentity::isSetupMachineMatch() {
  const std::string stored = settings_.string(setupMachineKey);
  return !stored.empty() && stored == machineId();
}

}  // namespace kestrin
