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

}  // namespace kestrin
