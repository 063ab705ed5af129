#pragma once

#include <optional>
#include <string>

#include "platform/linux/descriptor.h"
#include "platform/processes.h"

namespace kestrin {

/// A child just started: the leader of its own process group, with our ends of its three streams
/// (not blocking).
struct SpawnedProcess {
  int pid = 0;
  Descriptor pidfd;  ///< readable when the child has ended
  Descriptor input, output, error;
};

/// Starts `program` (a full path) as `spec` says. Only from a thread that lives as long as the
/// children are wanted: the kernel sends the parent-death signal when the starting thread ends.
/// Errors as `Processes`.
Result<SpawnedProcess> spawnProcess(const std::string& program, const ProcessSpec& spec);

/// Full path of a program in PATH, or the absolute path itself when it can be executed.
std::optional<std::string> findProgram(const std::string& program);

}  // namespace kestrin
