#include "platform/linux/process_spawn.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <vector>

#include "platform/linux/posix_error.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

struct Pipe {
  Descriptor read, write;
};

Result<Pipe> makePipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return fail(posixError("Processes", "pipe", errno));
  return Pipe{Descriptor(ends[0]), Descriptor(ends[1])};
}

/// Everything that the child needs between its birth and exec, prepared before: there it may only
/// make system calls, because another thread may have held any lock at the moment of the fork.
struct ChildPlan {
  const char* program;
  char* const* arguments;
  char* const* environment;
  const char* folder;
  int input, output, error, report;
  pid_t parent;
  bool dieWithParent;
};

[[noreturn]] void becomeProgram(const ChildPlan& plan) {
  const auto giveUp = [&plan] {
    const int number = errno;
    [[maybe_unused]] const ssize_t written = ::write(plan.report, &number, sizeof number);
    ::_exit(127);
  };
  if (::setpgid(0, 0) != 0) giveUp();
  if (plan.dieWithParent) {
    if (::prctl(PR_SET_PDEATHSIG, SIGTERM) != 0) giveUp();
    if (::getppid() != plan.parent) ::_exit(127);  // it died before the line above
  }
  // 0 to 2 may themselves be among our ends when this program runs with closed standard streams.
  const int input = ::fcntl(plan.input, F_DUPFD_CLOEXEC, 3);
  const int output = ::fcntl(plan.output, F_DUPFD_CLOEXEC, 3);
  const int error = ::fcntl(plan.error, F_DUPFD_CLOEXEC, 3);
  if (::dup2(input, 0) < 0 || ::dup2(output, 1) < 0 || ::dup2(error, 2) < 0) giveUp();
  // Libraries leave descriptors open that the child has no business with.
  ::syscall(SYS_close_range, 3u, ~0u, CLOSE_RANGE_CLOEXEC);
  if (plan.folder && ::chdir(plan.folder) != 0) giveUp();
  for (int number = 1; number < NSIG; ++number) ::signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::execve(plan.program, plan.arguments, plan.environment);
  giveUp();
  ::_exit(127);
}

std::vector<std::string> environmentOf(const ProcessSpec& spec) {
  std::vector<std::string> out;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text = *entry;
    if (spec.environment.count(std::string(text.substr(0, text.find('=')))) == 0) {
      out.emplace_back(text);
    }
  }
  for (const auto& [name, value] : spec.environment) {
    if (!value.empty()) out.push_back(name + "=" + value);
  }
  return out;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (std::string& text : texts) out.push_back(text.data());
  out.push_back(nullptr);
  return out;
}

/// The child's errno when it could not become the program, 0 when it did.
int startFailure(int report) {
  int number = 0;
  ssize_t got = 0;
  do {
    got = ::read(report, &number, sizeof number);
  } while (got < 0 && errno == EINTR);
  return got == sizeof number ? number : 0;
}

}  // namespace

Result<SpawnedProcess> spawnProcess(const std::string& program, const ProcessSpec& spec) {
  std::array<Pipe, 4> pipes;  // input, output, error, report
  for (Pipe& pipe : pipes) {
    auto made = makePipe();
    if (!made) return fail(made.error());
    pipe = std::move(*made);
  }
  std::vector<std::string> arguments = spec.arguments;
  arguments.insert(arguments.begin(), spec.program);
  std::vector<std::string> environment = environmentOf(spec);
  const std::vector<char*> argumentPointers = pointersTo(arguments);
  const std::vector<char*> environmentPointers = pointersTo(environment);
  const ChildPlan plan{program.c_str(),
                       argumentPointers.data(),
                       environmentPointers.data(),
                       spec.workingFolder.empty() ? nullptr : spec.workingFolder.c_str(),
                       pipes[0].read.get(),
                       pipes[1].write.get(),
                       pipes[2].write.get(),
                       pipes[3].write.get(),
                       ::getpid(),
                       spec.dieWithParent};
  const pid_t pid = ::fork();
  if (pid < 0) return fail(posixError("Processes", spec.program, errno));
  if (pid == 0) becomeProgram(plan);

  SpawnedProcess child;
  child.pid = pid;
  pipes[0].read = Descriptor();
  pipes[1].write = Descriptor();
  pipes[2].write = Descriptor();
  pipes[3].write = Descriptor();
  int failure = startFailure(pipes[3].read.get());
  if (failure == 0) {
    child.pidfd = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    if (!child.pidfd.valid()) {
      failure = errno;
      ::kill(-pid, SIGKILL);
    }
  }
  if (failure != 0) {
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    return fail(posixError("Processes", spec.program, failure));
  }
  child.input = std::move(pipes[0].write);
  child.output = std::move(pipes[1].read);
  child.error = std::move(pipes[2].read);
  for (const Descriptor* end : {&child.input, &child.output, &child.error}) {
    ::fcntl(end->get(), F_SETFL, O_NONBLOCK);
  }
  return child;
}

std::optional<std::string> findProgram(const std::string& program) {
  const auto executable = [](const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
  };
  if (program.find('/') != std::string::npos) {
    if (program[0] == '/' && executable(program)) return program;
    return {};
  }
  if (program.empty()) return {};
  const char* path = std::getenv("PATH");
  for (const std::string& folder : text::split(path ? path : "/usr/local/bin:/usr/bin:/bin", ":")) {
    // An empty or relative entry would mean the current folder.
    if (folder.empty() || folder[0] != '/') continue;
    if (const std::string full = folder + "/" + program; executable(full)) return full;
  }
  return {};
}

}  // namespace kestrin
