#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/lifetime.h"
#include "platform/processes.h"

namespace kestrin {

/// How a command ended. One that could not be started, or that was ended at its deadline, has the
/// reason as its error text.
struct CommandOutcome {
  static constexpr int neverEnded = -1;
  int exitCode = neverEnded;
  std::string output;
  std::string errorText;

  bool succeeded() const { return exitCode == 0; }
};

/// Runs commands as child processes, each under a deadline, so that a tool that hangs never holds
/// up its caller. Used on the main queue; completions and lines arrive there, in order. Commands
/// that run when this is destroyed are killed, unless they were to outlive us.
class CommandRunner {
 public:
  using Completion = std::function<void(CommandOutcome)>;
  using OnLine = std::function<void(const std::string&)>;

  struct Command {
    std::string program;
    std::vector<std::string> arguments;
    /// Of the whole run; with `onLine`, of the silence between two lines.
    Duration deadline{};
    /// Gets each line that is not empty.
    OnLine onLine = {};
    /// Goes on when this process ends or this runner is destroyed.
    bool outlivesUs = false;
  };

  CommandRunner(Dispatch& dispatch, Processes& processes);
  ~CommandRunner();

  void run(Command command, Completion completion);
  /// Kills what runs (but what may outlive us); the completions never come.
  void abandonAll();

 private:
  struct Running;
  void launched(const std::shared_ptr<Running>& running, Result<ChildProcessRef> child);
  void takeLine(const std::shared_ptr<Running>& running, const std::string& line, bool isError);
  void watch(const std::shared_ptr<Running>& running);
  void finish(const std::shared_ptr<Running>& running, int exitCode);
  static void abandon(Running& running, bool ended);

  Dispatch& dispatch_;
  Processes& processes_;
  std::vector<std::shared_ptr<Running>> running_;
  Lifetime lifetime_;
};

}  // namespace kestrin
