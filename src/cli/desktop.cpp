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
  const auto program = siblingProgram("kestrin-desktop");
  execlp(program.c_str(), program.c_str(), nullptr);
  std::cerr << "kestrin: cannot start kestrin-desktop: " << std::strerror(errno) << "\n";
  return failed;
}

}  // namespace kestrin::cli
