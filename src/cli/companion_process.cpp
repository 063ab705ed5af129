#include "cli/companion_process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/json/json.h"
#include "platform/linux/descriptor.h"
#include "platform/text/text.h"

namespace kestrin::cli {
namespace {

constexpr int endPatience = 10'000;  // milliseconds
constexpr int killPatience = 5'000;

tl::unexpected<Error> failure(const std::string& what, int number = errno) {
  return fail("Services", number, what + ": " + std::strerror(number));
}

/// When the process began, in the system's own count; a pid alone may have come to name another
/// one. Empty when it does not run.
std::string startOf(int pid) {
  const Descriptor file(
      ::open(("/proc/" + std::to_string(pid) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
  char block[4096];
  const ssize_t got = file.valid() ? ::read(file.get(), block, sizeof block) : 0;
  if (got <= 0) return {};
  // The name, which may hold anything, ends at the last parenthesis; the fields count from there.
  const std::string_view line(block, static_cast<size_t>(got));
  const auto fields = text::split(line.substr(line.rfind(')') + 1), " ");
  constexpr size_t state = 1;
  constexpr size_t startTime = 20;
  if (fields.size() <= startTime || fields[state] == "Z") return {};
  return fields[startTime];
}

/// Waits for the end of the process behind `pidfd`.
bool endsWithin(const Descriptor& pidfd, int milliseconds) {
  pollfd watched{pidfd.get(), POLLIN, 0};
  return ::poll(&watched, 1, milliseconds) > 0;
}

bool sendSignal(const Descriptor& pidfd, int signal) {
  return ::syscall(SYS_pidfd_send_signal, pidfd.get(), signal, nullptr, 0) == 0;
}

/// While this lives no other `kestrin services` starts or ends the companion.
Result<Descriptor> takeLock(Files& files) {
  const std::string path = files.runtimeFolder() + "/kestrin-companion.lock";
  Descriptor lock(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  if (!lock.valid()) return failure(path);
  if (::flock(lock.get(), LOCK_EX) != 0) return failure(path);
  return lock;
}

Result<int> spawnSession(const std::string& program, std::vector<std::string> arguments,
                         const std::string& log) {
  arguments.insert(arguments.begin(), program);
  std::vector<char*> words;
  for (std::string& argument : arguments) words.push_back(argument.data());
  words.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  // Also what a library left open: it would be held as long as the companion lives.
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &all);
  posix_spawnattr_setflags(&attributes,
                           POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  pid_t pid = 0;
  const int failed =
      ::posix_spawnp(&pid, program.c_str(), &actions, &attributes, words.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) return failure(program, failed);
  return pid;
}

}  // namespace

CompanionProcess::CompanionProcess(Files& files) : files_(files) {}

std::string CompanionProcess::recordFile() const {
  return files_.runtimeFolder() + "/kestrin-companion.pid";
}

std::string CompanionProcess::logFile() const {
  return files_.stateFolder() + "/kestrin/companion.log";
}

std::optional<int> CompanionProcess::pid() {
  const auto record = files_.read(recordFile());
  if (!record) return {};
  const auto fields = Json::parse(*record).value_or(Json());
  const auto pid = fields.intAt("pid");
  const auto start = fields.stringAt("start", "");
  if (!pid || *pid <= 1 || start.empty() || startOf(static_cast<int>(*pid)) != start) return {};
  return static_cast<int>(*pid);
}

Result<int> CompanionProcess::start(const std::string& program,
                                    const std::vector<std::string>& arguments) {
  const auto lock = takeLock(files_);
  if (!lock) return fail(lock.error());
  if (const auto running = pid()) {
    return fail("Services", EEXIST,
                "The companion runs already (process " + std::to_string(*running) + ")");
  }
  const std::string log = logFile();
  if (const auto made = files_.createFolders(log.substr(0, log.rfind('/'))); !made)
    return fail(made.error());
  const auto started = spawnSession(program, arguments, log);
  if (!started) return fail(started.error());
  child_ = *started;
  const auto record = Json::object({{"pid", child_}, {"start", startOf(child_)}});
  if (const auto written = files_.writeAtomic(recordFile(), record.dump() + "\n"); !written) {
    // Nobody could end it later.
    ::kill(child_, SIGKILL);
    return fail(written.error());
  }
  return child_;
}

std::optional<int> CompanionProcess::exitCode() {
  int status = 0;
  if (child_ == 0 || ::waitpid(child_, &status, WNOHANG) != child_) return {};
  child_ = 0;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Status CompanionProcess::end() {
  const auto lock = takeLock(files_);
  if (!lock) return fail(lock.error());
  const auto running = pid();
  if (!running) {
    return fail("Services", ESRCH, "No companion runs that \"kestrin services up\" has started");
  }
  const Descriptor pidfd(static_cast<int>(::syscall(SYS_pidfd_open, *running, 0)));
  if (!pidfd.valid()) return failure("Process " + std::to_string(*running));
  // Now that the number cannot come to name another process any more.
  if (pid() == running) {
    if (!sendSignal(pidfd, SIGTERM)) return failure("Process " + std::to_string(*running));
    if (!endsWithin(pidfd, endPatience)) {
      sendSignal(pidfd, SIGKILL);
      if (!endsWithin(pidfd, killPatience))
        return fail("Services", ETIMEDOUT, "Process " + std::to_string(*running) + " does not end");
    }
  }
  return files_.remove(recordFile());
}

}  // namespace kestrin::cli
