#include "platform/linux/posix_processes.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <future>
#include <list>
#include <mutex>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <thread>

#include "platform/linux/child_output.h"
#include "platform/linux/posix_error.h"
#include "platform/linux/process_spawn.h"

namespace kestrin {
namespace {

using Time = std::chrono::steady_clock::time_point;

constexpr size_t largestOutput = 64u << 20;
/// Lines posted but not yet taken, in bytes: above this the child has to wait.
constexpr size_t mostUntaken = 4u << 20;

/// What its user can reach of a child from any thread.
class ChildHandle final : public ChildProcess {
 public:
  ChildHandle(int pid, std::function<void()> wake) : pid_(pid), wake_(std::move(wake)) {}

  int pid() const override { return pid_; }
  void terminate() override { signalGroup(SIGTERM); }
  void kill() override { signalGroup(SIGKILL); }
  void write(std::string_view bytes) override {
    {
      const std::lock_guard lock(mutex_);
      input_ += bytes;
    }
    wake_();
  }
  void closeInput() override {
    {
      const std::lock_guard lock(mutex_);
      inputEnds_ = true;
    }
    wake_();
  }

  void signalGroup(int number) {
    const std::lock_guard lock(mutex_);
    // Once it is waited for, the number may belong to somebody else.
    if (!ended_) ::kill(-pid_, number);
  }
  /// Waits for a child that has ended; its exit code.
  int reap() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    int status = 0;
    while (::waitpid(pid_, &status, 0) < 0) {
      if (errno != EINTR) return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  }
  std::string takeInput(bool& ends) {
    const std::lock_guard lock(mutex_);
    ends = inputEnds_;
    return std::exchange(input_, {});
  }

  std::atomic<size_t> untaken{0};  ///< bytes of lines posted and not yet handed over

 private:
  const int pid_;
  const std::function<void()> wake_;
  std::mutex mutex_;
  std::string input_;
  bool inputEnds_ = false;
  bool ended_ = false;
};

/// The thread's side of a child.
struct Child {
  SpawnedProcess process;
  std::shared_ptr<ChildHandle> handle;
  std::string input;
  Time deadline = Time::max();
  bool timedOut = false;
  std::function<void(const Child&, std::string_view bytes, bool isError)> onOutput;
  std::function<void(const Child&, int exitCode)> onEnd;
};

class ProcessLoop : public std::enable_shared_from_this<ProcessLoop> {
 public:
  ProcessLoop() : thread_([this] { run(); }) {}
  ~ProcessLoop() {
    stopped_ = true;
    wake();
    thread_.join();
  }

  using Ready = std::function<void(Result<std::shared_ptr<ChildHandle>>)>;
  /// Starts a child on the thread; `ready` runs there, before anything else of that child.
  void start(std::string program, ProcessSpec spec, Child child, Ready ready) {
    auto order = std::make_shared<Order>();
    *order = {std::move(program), std::move(spec), std::move(child), std::move(ready)};
    {
      const std::lock_guard lock(mutex_);
      orders_.push_back(std::move(order));
    }
    wake();
  }
  void wake() { wake_.signal(); }

 private:
  struct Order {
    std::string program;
    ProcessSpec spec;
    Child child;
    Ready ready;
  };

  void run();
  void spawnOrdered();
  void wait();
  void writeInput(Child& child);
  static void readOutput(Child& child, Descriptor& from, bool isError);
  bool serve(Child& child);

  WakeEvent wake_;
  std::mutex mutex_;  ///< guards orders_
  std::vector<std::shared_ptr<Order>> orders_;
  std::atomic<bool> stopped_{false};
  std::list<Child> children_;  ///< the thread's own
  std::thread thread_;
};

void ProcessLoop::run() {
  // A child that closes its input must not end this program; the children get a clean mask at exec.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  while (!stopped_) {
    spawnOrdered();
    for (Child& child : children_) writeInput(child);
    wait();
    for (auto child = children_.begin(); child != children_.end();) {
      child = serve(*child) ? children_.erase(child) : std::next(child);
    }
  }
  // Nobody reads any more. Those that die with their parent get their signal as this thread ends.
}

void ProcessLoop::spawnOrdered() {
  std::vector<std::shared_ptr<Order>> orders;
  {
    const std::lock_guard lock(mutex_);
    orders.swap(orders_);
  }
  for (const auto& order : orders) {
    auto spawned = spawnProcess(order->program, order->spec);
    if (!spawned) {
      order->ready(fail(spawned.error()));
      continue;
    }
    Child& child = order->child;
    child.process = std::move(*spawned);
    child.handle = std::make_shared<ChildHandle>(child.process.pid, [weak = weak_from_this()] {
      if (const auto loop = weak.lock()) loop->wake();
    });
    order->ready(child.handle);
    children_.push_back(std::move(child));
  }
}

void ProcessLoop::wait() {
  std::vector<pollfd> waits{{wake_.get(), POLLIN, 0}};
  Time next = Time::max();
  for (const Child& child : children_) {
    next = std::min(next, child.deadline);
    if (!child.input.empty()) waits.push_back({child.process.input.get(), POLLOUT, 0});
    if (child.handle->untaken > mostUntaken) continue;  // woken when they are taken
    waits.push_back({child.process.pidfd.get(), POLLIN, 0});
    for (const Descriptor* fd : {&child.process.output, &child.process.error}) {
      if (fd->valid()) waits.push_back({fd->get(), POLLIN, 0});
    }
  }
  int timeout = -1;
  if (next != Time::max()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(next - std::chrono::steady_clock::now());
    timeout = static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
  }
  ::poll(waits.data(), waits.size(), timeout);
  wake_.reset();
}

void ProcessLoop::writeInput(Child& child) {
  Descriptor& input = child.process.input;
  bool ends = false;
  child.input += child.handle->takeInput(ends);
  while (input.valid() && !child.input.empty()) {
    const ssize_t written = ::write(input.get(), child.input.data(), child.input.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno == EAGAIN) return;
    if (written < 0) input = Descriptor();  // the child does not want it
    child.input.erase(0, written < 0 ? child.input.size() : static_cast<size_t>(written));
  }
  if (!input.valid()) child.input.clear();
  if (ends) input = Descriptor();
}

void ProcessLoop::readOutput(Child& child, Descriptor& from, bool isError) {
  std::array<char, 65'536> block;
  // In turns: a child that prints without end must not keep the others, or its own time-out,
  // waiting.
  for (int turn = 0; turn < 16 && from.valid() && child.handle->untaken <= mostUntaken; ++turn) {
    const ssize_t got = ::read(from.get(), block.data(), block.size());
    if (got > 0) {
      child.onOutput(child, {block.data(), static_cast<size_t>(got)}, isError);
    } else if (got == 0 || (errno != EINTR && errno != EAGAIN)) {
      from = Descriptor();
    } else if (errno == EAGAIN) {
      return;
    }
  }
}

bool ProcessLoop::serve(Child& child) {
  if (std::chrono::steady_clock::now() >= child.deadline && !child.timedOut) {
    child.timedOut = true;
    child.deadline = Time::max();
    child.handle->signalGroup(SIGKILL);
  }
  pollfd ended{child.process.pidfd.get(), POLLIN, 0};
  const bool hasEnded = ::poll(&ended, 1, 0) > 0;
  // After the end as well: what it printed last is still in the pipe. A grandchild may hold the
  // pipe open for ever, so the end of the stream is not waited for.
  readOutput(child, child.process.output, false);
  readOutput(child, child.process.error, true);
  // Untaken lines hold the rest back; it comes with a later round.
  if (!hasEnded || child.handle->untaken > mostUntaken) return false;
  child.onEnd(child, child.handle->reap());
  return true;
}

class PosixProcesses final : public Processes {
 public:
  Result<ProcessOutput> run(const ProcessSpec& spec, Duration timeout) override;
  Result<ChildProcessRef> start(const ProcessSpec& spec, QueueRef queue,
                                std::function<void(std::string, bool)> onLine,
                                std::function<void(int)> onExit) override;
  std::optional<std::string> find(const std::string& program) override {
    return findProgram(program);
  }

 private:
  Result<std::shared_ptr<ChildHandle>> launch(const ProcessSpec& spec, Child child);

  const std::shared_ptr<ProcessLoop> loop_ = std::make_shared<ProcessLoop>();
};

Result<std::shared_ptr<ChildHandle>> PosixProcesses::launch(const ProcessSpec& spec, Child child) {
  const auto program = findProgram(spec.program);
  if (!program) return fail(posixError("Processes", spec.program, ENOENT));
  auto ready = std::make_shared<std::promise<Result<std::shared_ptr<ChildHandle>>>>();
  auto started = ready->get_future();
  child.input = spec.input;
  loop_->start(*program, spec, std::move(child),
               [ready](Result<std::shared_ptr<ChildHandle>> handle) { ready->set_value(handle); });
  return started.get();
}

Result<ProcessOutput> PosixProcesses::run(const ProcessSpec& spec, Duration timeout) {
  auto output = std::make_shared<ProcessOutput>();
  auto ended = std::make_shared<std::promise<bool>>();
  auto timedOut = ended->get_future();
  Child child;
  child.deadline = std::chrono::steady_clock::now() + timeout;
  child.onOutput = [output](const Child&, std::string_view bytes, bool isError) {
    Bytes& into = isError ? output->standardError : output->standardOutput;
    into += bytes.substr(0, largestOutput - into.size());
  };
  child.onEnd = [output, ended](const Child& self, int exitCode) {
    output->exitCode = exitCode;
    ended->set_value(self.timedOut);
  };
  const auto handle = launch(spec, std::move(child));
  if (!handle) return fail(handle.error());
  (*handle)->closeInput();
  if (timedOut.get()) return fail(posixError("Processes", spec.program, ETIMEDOUT));
  return std::move(*output);
}

Result<ChildProcessRef> PosixProcesses::start(const ProcessSpec& spec, QueueRef queue,
                                              std::function<void(std::string, bool)> onLine,
                                              std::function<void(int)> onExit) {
  const std::weak_ptr<ProcessLoop> loop = loop_;
  const auto post = [queue, onLine, loop](const Child& child, std::vector<std::string> lines,
                                          bool isError) {
    if (lines.empty() || !onLine) return;
    size_t size = 0;
    for (const std::string& line : lines) size += line.size() + sizeof(std::string);
    child.handle->untaken += size;
    queue->post([onLine, isError, size, loop, handle = child.handle, lines = std::move(lines)] {
      for (const std::string& line : lines) onLine(line, isError);
      const size_t before = handle->untaken.fetch_sub(size);
      if (before <= mostUntaken || before - size > mostUntaken) return;
      if (const auto alive = loop.lock()) alive->wake();
    });
  };
  const auto cutters = std::make_shared<std::array<LineCutter, 2>>();
  Child child;
  child.onOutput = [cutters, post](const Child& self, std::string_view bytes, bool isError) {
    post(self, (*cutters)[isError ? 1 : 0].take(bytes), isError);
  };
  child.onEnd = [cutters, post, queue, onExit](const Child& self, int exitCode) {
    post(self, (*cutters)[0].rest(), false);
    post(self, (*cutters)[1].rest(), true);
    if (onExit) queue->post([onExit, exitCode] { onExit(exitCode); });
  };
  auto handle = launch(spec, std::move(child));
  if (!handle) return fail(handle.error());
  return ChildProcessRef(std::move(*handle));
}

}  // namespace

std::unique_ptr<Processes> makePosixProcesses() { return std::make_unique<PosixProcesses>(); }

}  // namespace kestrin
