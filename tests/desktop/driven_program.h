#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace kestrin {

/// A real program that a test starts, talks to over its standard streams and ends with everything
/// it started.
class DrivenProgram {
 public:
  explicit DrivenProgram(const std::vector<std::string>& arguments);
  ~DrivenProgram();
  DrivenProgram(const DrivenProgram&) = delete;
  DrivenProgram& operator=(const DrivenProgram&) = delete;

  int pid() const { return pid_; }
  /// Sends one line and waits for the line that answers it.
  std::string ask(const std::string& line);
  /// Ends it at once, as a crash would.
  void end();
  void stop() { signalAll(19); }
  void resume() { signalAll(18); }

 private:
  void signalAll(int number);

  pid_t pid_ = 0;
  int input_ = -1;
  int output_ = -1;
};

}  // namespace kestrin
