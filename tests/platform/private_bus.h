#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <signal.h>
#include <string>

#include "platform/linux/dbus.h"

namespace kestrin {

/// A bus of its own, so that a test may end it.
class PrivateBus {
 public:
  /// `options`: which configuration the bus takes.
  explicit PrivateBus(const std::string& options = "--session --address=unix:tmpdir=/tmp") {
    output_ =
        popen(("exec dbus-daemon --nofork --nopidfile --print-address=1 --print-pid=1 " + options)
                  .c_str(),
              "r");
    char line[512] = {};
    if (fgets(line, sizeof line, output_))
      address_ = std::string(line).substr(0, std::string(line).find('\n'));
    if (fgets(line, sizeof line, output_)) pid_ = atoi(line);
  }
  ~PrivateBus() {
    stop();
    pclose(output_);
  }
  void stop() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    pid_ = 0;
  }
  const std::string& address() const { return address_; }
  std::unique_ptr<dbus::Connection> connect() {
    return std::move(dbus::Connection::open(address_).value());
  }

 private:
  FILE* output_;
  std::string address_;
  int pid_ = 0;
};

}  // namespace kestrin
