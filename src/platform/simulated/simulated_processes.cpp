#include "platform/simulated/simulated_processes.h"

#include <cerrno>
#include <system_error>

namespace kestrin {
namespace {

/// The name to look up: of a bare name or an absolute path; a relative path names nothing.
std::string baseName(const std::string& program) {
  const size_t slash = program.rfind('/');
  if (slash == std::string::npos) return program;
  return program[0] == '/' ? program.substr(slash + 1) : std::string();
}

tl::unexpected<Error> failure(const ProcessSpec& spec, int number) {
  return fail("Processes", number, spec.program + ": " + std::generic_category().message(number));
}

constexpr int terminated = 128 + 15;
constexpr int killed = 128 + 9;

}  // namespace

ScriptedProgram ScriptedProgram::printing(std::string text, int exitCode) {
  ScriptedProgram script;
  script.lines.push_back({{}, std::move(text)});
  script.exitCode = exitCode;
  return script;
}

struct SimulatedProcesses::Record {
  std::mutex mutex;
  SeenProcess seen;

  void end(int exitCode) {
    const std::lock_guard lock(mutex);
    if (!seen.exitCode) seen.exitCode = exitCode;
  }
};

/// A running script; its steps happen on the queue that hears of them.
class SimulatedProcesses::Child final : public ChildProcess,
                                        public std::enable_shared_from_this<Child> {
 public:
  Child(int pid, std::shared_ptr<Record> record, ScriptedProgram script, QueueRef queue,
        std::function<void(std::string, bool)> onLine, std::function<void(int)> onExit)
      : pid_(pid),
        record_(std::move(record)),
        script_(std::move(script)),
        queue_(std::move(queue)),
        onLine_(std::move(onLine)),
        onExit_(std::move(onExit)) {}

  int pid() const override { return pid_; }
  void terminate() override { signal(terminated); }
  void kill() override { signal(killed); }
  void write(std::string_view bytes) override {
    const std::lock_guard lock(record_->mutex);
    record_->seen.input += bytes;
  }
  void closeInput() override {
    const std::lock_guard lock(record_->mutex);
    record_->seen.inputClosed = true;
  }

  /// Steps are kept alive by the queue, as a real child runs on without its handle.
  void scheduleStep() {
    const bool atEnd = next_ == script_.lines.size();
    if (atEnd && script_.endless) return;
    queue_->postAfter(atEnd ? script_.endDelay : script_.lines[next_].delay,
                      [self = shared_from_this()] { self->step(); });
  }

 private:
  void step() {
    if (ended_) return;
    if (next_ == script_.lines.size()) return end(script_.exitCode);
    const auto& line = script_.lines[next_++];
    if (onLine_) onLine_(line.text, line.isError);
    scheduleStep();
  }
  void signal(int exitCode) {
    queue_->post([self = shared_from_this(), exitCode] {
      if (!self->ended_) self->end(exitCode);
    });
  }
  void end(int exitCode) {
    ended_ = true;
    record_->end(exitCode);
    if (onExit_) onExit_(exitCode);
  }

  const int pid_;
  const std::shared_ptr<Record> record_;
  const ScriptedProgram script_;
  const QueueRef queue_;
  const std::function<void(std::string, bool)> onLine_;
  const std::function<void(int)> onExit_;
  size_t next_ = 0;  // touched on the queue only, as is ended_
  bool ended_ = false;
};

SimulatedProcesses::SimulatedProcesses(Dispatch& dispatch, FaultPlan* faults)
    : dispatch_(dispatch), faults_(faults) {}

Result<SimulatedProcesses::Started> SimulatedProcesses::begin(const ProcessSpec& spec,
                                                              std::string_view site) {
  if (faultDue(faults_, site)) return failure(spec, EAGAIN);
  Handler handler;
  Started started;
  {
    const std::lock_guard lock(mutex_);
    const auto found = programs_.find(baseName(spec.program));
    if (found == programs_.end()) return failure(spec, ENOENT);
    handler = found->second;
    started.record = std::make_shared<Record>();
    started.record->seen = {spec, spec.input, false, {}};
    records_.push_back(started.record);
    started.pid = 1000 + static_cast<int>(records_.size());
  }
  started.script = handler(spec);
  return started;
}

Result<ProcessOutput> SimulatedProcesses::run(const ProcessSpec& spec, Duration timeout) {
  const auto started = begin(spec, "processes.run");
  if (!started) return fail(started.error());
  const ScriptedProgram& script = started->script;
  Duration needed = script.endDelay;
  ProcessOutput output;
  output.exitCode = script.exitCode;
  for (const auto& line : script.lines) {
    needed += line.delay;
    (line.isError ? output.standardError : output.standardOutput) += line.text + "\n";
  }
  const bool late = script.endless || needed >= timeout;
  dispatch_.clock().sleep(late ? timeout : needed, spec.program + " runs");
  started->record->end(late ? killed : output.exitCode);
  if (late) return failure(spec, ETIMEDOUT);
  return output;
}

Result<ChildProcessRef> SimulatedProcesses::start(const ProcessSpec& spec, QueueRef queue,
                                                  std::function<void(std::string, bool)> onLine,
                                                  std::function<void(int)> onExit) {
  auto started = begin(spec, "processes.start");
  if (!started) return fail(started.error());
  const auto child =
      std::make_shared<Child>(started->pid, started->record, std::move(started->script),
                              std::move(queue), std::move(onLine), std::move(onExit));
  child->scheduleStep();
  return ChildProcessRef(child);
}

std::optional<std::string> SimulatedProcesses::find(const std::string& program) {
  const std::lock_guard lock(mutex_);
  if (programs_.count(baseName(program)) == 0) return {};
  return program[0] == '/' ? program : "/usr/bin/" + program;
}

void SimulatedProcesses::on(const std::string& program, Handler handler) {
  const std::lock_guard lock(mutex_);
  programs_[program] = std::move(handler);
}

void SimulatedProcesses::on(const std::string& program, ScriptedProgram script) {
  on(program, [script = std::move(script)](const ProcessSpec&) { return script; });
}

void SimulatedProcesses::forget(const std::string& program) {
  const std::lock_guard lock(mutex_);
  programs_.erase(program);
}

std::vector<SeenProcess> SimulatedProcesses::seen() const {
  const std::lock_guard lock(mutex_);
  std::vector<SeenProcess> out;
  for (const auto& record : records_) {
    const std::lock_guard inner(record->mutex);
    out.push_back(record->seen);
  }
  return out;
}

}  // namespace kestrin
