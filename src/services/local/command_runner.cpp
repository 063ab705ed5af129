#include "services/local/command_runner.h"

#include <utility>

namespace kestrin {
namespace {

/// Of each stream; of what a talkative tool says the end matters.
constexpr size_t mostOutput = 1u << 20;

void append(std::string& to, const std::string& line) {
  to += line + "\n";
  if (to.size() > mostOutput) to.erase(0, to.size() - mostOutput / 2);
}

}  // namespace

struct CommandRunner::Running {
  Command command;
  Completion completion;
  CommandOutcome outcome;
  ChildProcessRef child;
  TimerHandle deadline;
  bool abandoned = false;  ///< nobody waits for it
};

CommandRunner::CommandRunner(Dispatch& dispatch, Processes& processes)
    : dispatch_(dispatch), processes_(processes) {}

CommandRunner::~CommandRunner() { abandonAll(); }

void CommandRunner::run(Command command, Completion completion) {
  auto running = std::make_shared<Running>();
  running->command = std::move(command);
  running->completion = std::move(completion);
  running_.push_back(running);
  watch(running);
  ProcessSpec spec{.program = running->command.program,
                   .arguments = running->command.arguments,
                   .dieWithParent = !running->command.outlivesUs};
  const std::function<void(std::string, bool)> onLine = lifetime_.guard(
      [this, running](const std::string& line, bool isError) { takeLine(running, line, isError); });
  const std::function<void(int)> onExit =
      lifetime_.guard([this, running](int exitCode) { finish(running, exitCode); });
  const std::function<void(Result<ChildProcessRef>)> onLaunched = lifetime_.guard(
      [this, running](Result<ChildProcessRef> child) { launched(running, std::move(child)); });
  // Starting waits for the child's exec.
  dispatch_.globalQueue()->post([&processes = processes_, main = dispatch_.mainQueue(), spec,
                                 onLine, onExit, onLaunched, running] {
    auto child = processes.start(spec, main, onLine, onExit);
    main->post([running, onLaunched, child = std::move(child)] {
      // It took so long to start that nobody waits any more.
      const bool unwanted = running->abandoned && !running->command.outlivesUs;
      if (child && unwanted) return (*child)->kill();
      onLaunched(child);
    });
  });
}

void CommandRunner::launched(const std::shared_ptr<Running>& running,
                             Result<ChildProcessRef> child) {
  if (running->abandoned) return;
  if (child) {
    running->child = *child;
    // A command that needs no input must not wait for any.
    running->child->closeInput();
    return;
  }
  running->outcome.errorText = child.error().description;
  if (running->command.onLine) running->command.onLine("Error: " + child.error().description);
  finish(running, CommandOutcome::neverEnded);
}

void CommandRunner::takeLine(const std::shared_ptr<Running>& running, const std::string& line,
                             bool isError) {
  if (running->abandoned) return;
  append(isError ? running->outcome.errorText : running->outcome.output, line);
  if (!running->command.onLine) return;
  watch(running);
  if (!line.empty()) running->command.onLine(line);
}

void CommandRunner::watch(const std::shared_ptr<Running>& running) {
  running->deadline = dispatch_.after(
      dispatch_.mainQueue(), running->command.deadline, lifetime_.guard([this, running] {
        running->outcome.errorText = running->command.program + " did not answer in time";
        finish(running, CommandOutcome::neverEnded);
      }));
}

/// Also what still runs is over for us: a child that cannot even be killed is waited for by nobody.
void CommandRunner::finish(const std::shared_ptr<Running>& running, int exitCode) {
  if (running->abandoned) return;
  const bool ended = exitCode != CommandOutcome::neverEnded;
  abandon(*running, ended);
  std::erase(running_, running);
  running->outcome.exitCode = exitCode;
  const auto completion = std::move(running->completion);
  if (completion) completion(std::move(running->outcome));
}

void CommandRunner::abandon(Running& running, bool ended) {
  running.abandoned = true;
  running.deadline.reset();
  if (running.child && !ended && !running.command.outlivesUs) running.child->kill();
  running.child.reset();
}

void CommandRunner::abandonAll() {
  for (const auto& running : std::exchange(running_, {})) abandon(*running, false);
}

}  // namespace kestrin
