#include <cerrno>
#include <cstring>
#include <iostream>
#include <unistd.h>

#include "cli/commands.h"
#include "platform/linux/control_bus.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {

int desktop() {
  if (LinuxControlBus().send(ControlCommand::show)) return done;
  const auto beside = programFolder() + "/kestrin-desktop";
  execl(beside.c_str(), beside.c_str(), nullptr);
  execlp("kestrin-desktop", "kestrin-desktop", nullptr);
  std::cerr << "kestrin: cannot start kestrin-desktop: " << std::strerror(errno) << "\n";
  return failed;
}

}  // namespace kestrin::cli
