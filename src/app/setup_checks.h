#pragma once

#include <string>
#include <vector>

#include "app/core_services.h"
#include "app/doctor.h"

namespace kestrin {

/// One line of the first-run checklist.
struct SetupItem {
  Finding finding;
  /// The application does not start without it, unless the user accepted that.
  bool required = false;

  bool isMissing() const { return required && finding.state == Finding::State::missing; }
};
using SetupItems = std::vector<SetupItem>;

/// What first-run setup asks of this machine, found by the doctor's own checks. Off the main queue.
class SetupChecks {
 public:
  SetupChecks(CoreServices& core, const Doctor::Options& options);

  /// Only what the start depends on: some milliseconds as a rule.
  SetupItems examineRequired();
  /// All lines, in the order in which they are shown; some seconds at worst.
  SetupItems examine();

 private:
  SetupItem accessibility() { return {doctor_.checkAccessibility(), true}; }
  SetupItem microphone() { return {doctor_.checkMicrophonePresence(), true}; }
  SetupItem recogniser();
  SetupItem languageModel();
  SetupItem serviceHost();

  CoreServices& core_;
  const std::string companionProgram_;
  Doctor doctor_;
};

/// Whether setup was completed on this very machine, and what the user accepted to go without.
class SetupRecord {
 public:
  static constexpr const char* completedKey = "nibo_setup_completed";
  static constexpr const char* acceptedKey = "nibo_setup_accepted";

  SetupRecord(SettingsStore& settings, MachineIdentity& machine)
      : settings_(settings), machine_(machine) {}

  /// Whether the start has to wait for the user. Reads the machine's identity: off the main queue.
  bool needsSetup(const SetupItems& items);
  /// Completes setup on this machine; what is missing in `items` is accepted.
  void complete(const SetupItems& items);

 private:
  SettingsStore& settings_;
  MachineIdentity& machine_;
};

/// Names of the required items that are missing.
std::vector<std::string> missingNames(const SetupItems& items);

}  // namespace kestrin
