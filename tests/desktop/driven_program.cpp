#include "desktop/driven_program.h"

#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kestrin {
namespace {

struct Spawned {
  pid_t pid;
  int input;
  int output;
};

Spawned spawn(const std::vector<std::string>& arguments) {
  int in[2];
  int out[2];
  if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC)) std::abort();
  std::vector<char*> argv;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);
    dup2(in[0], 0);
    dup2(out[1], 1);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  setpgid(pid, pid);
  close(in[0]);
  close(out[1]);
  return {pid, in[1], out[0]};
}

}  // namespace

DrivenProgram::DrivenProgram(const std::vector<std::string>& arguments) {
  const auto spawned = spawn(arguments);
  pid_ = spawned.pid;
  input_ = spawned.input;
  output_ = spawned.output;
}

DrivenProgram::~DrivenProgram() {
  end();
  close(input_);
  close(output_);
}

void DrivenProgram::signalAll(int number) {
  if (pid_ > 0) kill(-pid_, number);
}

void DrivenProgram::end() {
  if (pid_ <= 0) return;
  signalAll(SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = 0;
}

std::string DrivenProgram::ask(const std::string& line) {
  const auto command = line + "\n";
  if (write(input_, command.data(), command.size()) < 0) return {};
  std::string answer;
  for (char c = 0; read(output_, &c, 1) == 1 && c != '\n';) answer += c;
  return answer;
}

std::string outputOf(const std::vector<std::string>& arguments) {
  const auto spawned = spawn(arguments);
  close(spawned.input);
  std::string printed;
  char buffer[4096];
  for (ssize_t n; (n = read(spawned.output, buffer, sizeof buffer)) > 0;)
    printed.append(buffer, static_cast<size_t>(n));
  close(spawned.output);
  waitpid(spawned.pid, nullptr, 0);
  while (!printed.empty() && printed.back() == '\n') printed.pop_back();
  return printed;
}

void userPresses(const std::vector<std::string>& keys) {
  std::vector<std::string> command{"xdotool", "key", "--delay", "20"};
  command.insert(command.end(), keys.begin(), keys.end());
  outputOf(command);
}

void userTypesKeys(const std::string& text) {
  outputOf({"xdotool", "type", "--delay", "20", text});
}

}  // namespace kestrin
