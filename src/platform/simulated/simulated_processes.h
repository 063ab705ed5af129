#pragma once

#include <mutex>
#include <vector>

#include "platform/processes.h"
#include "platform/simulated/fault_plan.h"

namespace kestrin {

/// What a scripted program does.
struct ScriptedProgram {
  struct Line {
    Duration delay{0};  ///< after the line before
    std::string text;
    bool isError = false;
  };
  std::vector<Line> lines;
  Duration endDelay{0};  ///< after the last line
  int exitCode = 0;
  bool endless = false;  ///< never ends by itself

  static ScriptedProgram printing(std::string text, int exitCode = 0);
};

/// A program that was started, as it stands now.
struct SeenProcess {
  ProcessSpec spec;
  std::string input;
  bool inputClosed = false;
  std::optional<int> exitCode;  ///< absent while it runs
};

/// Child processes in virtual time. A program that nothing is scripted for does not exist. Fault
/// sites: "processes.run", "processes.start" (EAGAIN, as when no process can be made).
class SimulatedProcesses final : public Processes {
 public:
  using Handler = std::function<ScriptedProgram(const ProcessSpec&)>;

  explicit SimulatedProcesses(Dispatch& dispatch, FaultPlan* faults = nullptr);

  Result<ProcessOutput> run(const ProcessSpec& spec, Duration timeout) override;
  Result<ChildProcessRef> start(const ProcessSpec& spec, QueueRef queue,
                                std::function<void(std::string, bool)> onLine,
                                std::function<void(int)> onExit) override;
  std::optional<std::string> find(const std::string& program) override;

  /// What `program` (its last path component) does from now on.
  void on(const std::string& program, Handler handler);
  void on(const std::string& program, ScriptedProgram script);
  /// Uninstalls it.
  void forget(const std::string& program);

  /// Everything started so far, in order.
  std::vector<SeenProcess> seen() const;

  class Child;

 private:
  struct Record;
  struct Started {
    ScriptedProgram script;
    std::shared_ptr<Record> record;
    int pid;
  };
  Result<Started> begin(const ProcessSpec& spec, std::string_view site);

  Dispatch& dispatch_;
  FaultPlan* const faults_;
  mutable std::mutex mutex_;  ///< guards programs_ and records_
  std::map<std::string, Handler> programs_;
  std::vector<std::shared_ptr<Record>> records_;
};

}  // namespace kestrin
