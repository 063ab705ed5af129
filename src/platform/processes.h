#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/bytes.h"
#include "platform/dispatch/dispatch.h"
#include "platform/result.h"

namespace kestrin {

struct ProcessSpec {
  /// An absolute path, or a name looked up in PATH. Never a shell text.
  std::string program;
  std::vector<std::string> arguments;
  /// Laid over this process's environment; an empty value removes the variable.
  std::map<std::string, std::string> environment;
  std::string workingFolder;
  Bytes input;
  /// The child is told to end (SIGTERM) when this process dies.
  bool dieWithParent = true;
};

struct ProcessOutput {
  int exitCode = 0;  ///< 128 + signal when it was killed by one
  Bytes standardOutput;
  Bytes standardError;
};

/// A running child. Destroying the handle does not end it.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;
  virtual int pid() const = 0;
  virtual void terminate() = 0;  ///< SIGTERM to the child's group
  virtual void kill() = 0;       ///< SIGKILL to the child's group
  virtual void write(std::string_view bytes) = 0;
  virtual void closeInput() = 0;
};
using ChildProcessRef = std::shared_ptr<ChildProcess>;

/// Starts programs without a shell. Errors: domain "Processes", code = errno (2: no such program).
/// Thread-safe.
class Processes {
 public:
  virtual ~Processes() = default;
  /// Waits for the end, so call it off the main queue. At the time-out the child's group is killed
  /// and the error has code ETIMEDOUT. Output is bounded to 64 MiB each.
  virtual Result<ProcessOutput> run(const ProcessSpec& spec, Duration timeout) = 0;
  /// `onLine(line, isStandardError)` and then `onExit(exitCode)` arrive on `queue`.
  virtual Result<ChildProcessRef> start(const ProcessSpec& spec, QueueRef queue,
                                        std::function<void(std::string, bool)> onLine,
                                        std::function<void(int)> onExit) = 0;
  /// Full path of a program in PATH (or an executable absolute path).
  virtual std::optional<std::string> find(const std::string& program) = 0;
};

}  // namespace kestrin
