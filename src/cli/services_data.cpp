#include <filesystem>
#include <iostream>

#include "cli/commands.h"
#include "cli/live_printer.h"
#include "cli/printable.h"
#include "platform/linux/linux_platform.h"
#include "platform/linux/posix_processes.h"

namespace kestrin::cli {
namespace {

constexpr std::chrono::minutes maintenanceLimit{10};

/// Runs the companion for its data alone.
int maintain(std::vector<std::string> arguments, const std::string& success) {
  const auto processes = makePosixProcesses();
  const auto output = processes->run(
      {.program = siblingProgram("kestrin-companion"), .arguments = std::move(arguments)},
      maintenanceLimit);
  if (!output) {
    tell(output.error().description);
    return failed;
  }
  std::cerr << printable(output->standardError) << std::flush;
  if (output->exitCode == 0) std::cout << success << std::endl;
  return output->exitCode == 0 ? done : failed;
}

/// The child has this process's working folder, but says nothing of relative paths.
std::string absolute(const std::string& file) {
  return std::filesystem::absolute(file).lexically_normal().string();
}

}  // namespace

int servicesExport(const std::string& file) {
  return maintain({"--export", absolute(file)}, "The companion's data was written to " + file);
}

int servicesImport(const std::string& file) {
  return maintain({"--import", absolute(file)}, "The companion has the data of " + file);
}

int servicesErase(bool yes) {
  if (!yes) {
    std::cerr << "This removes the history, notes, sessions, research and profiles that the "
                 "companion keeps. Type \"erase\" to go on: "
              << std::flush;
    std::string answer;
    if (!std::getline(std::cin, answer) || answer != "erase") {
      tell("Nothing was removed");
      return failed;
    }
  }
  return maintain({"--erase"}, "The companion's data is gone");
}

}  // namespace kestrin::cli
