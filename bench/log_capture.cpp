// Lines a second from a print to the log's entries and the day's file, with everything captured.
// The floor, in the same run: the same prints straight into a file.
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "diagnostics/system_log_capture.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/linux_standard_streams.h"

using namespace kestrin;
using Steady = std::chrono::steady_clock;

namespace {

constexpr int lines = 200'000;

double printLines() {
  const auto start = Steady::now();
  for (int i = 0; i < lines; ++i) {
    std::printf("[Streaming] chunk %d of request 4 inserted at offset 1289\n", i);
  }
  std::fflush(stdout);
  return std::chrono::duration<double>(Steady::now() - start).count();
}

}  // namespace

int main() {
  const auto folder = std::filesystem::temp_directory_path();
  const std::string floorFile = folder / "kestrin-bench-floor.log";
  const std::string ourFile = folder / "kestrin-bench-capture.log";
  const auto dispatch = ThreadsDispatch::make();
  NotificationCenter notifications;
  Logger logger(*dispatch, notifications);

  double bare = 0;
  double printing = 0;
  double whole = 0;
  {
    LinuxStandardStreams streams;
    if (!streams.redirectOriginals(floorFile)) return 1;
    bare = printLines();
  }
  {
    LinuxStandardStreams streams;
    SystemLogCapture capture(*dispatch, streams, logger);
    capture.start();
    if (!streams.redirectOriginals(ourFile)) return 1;
    const auto start = Steady::now();
    printing = printLines();
    capture.stop();
    whole = std::chrono::duration<double>(Steady::now() - start).count();
  }
  const auto written = std::filesystem::file_size(ourFile);
  const auto expected = std::filesystem::file_size(floorFile);
  std::printf(
      "capture: floor %.0f lines/s   printed %.0f lines/s   in log and file %.0f lines/s   ratio "
      "%.2f   %s\n",
      lines / bare, lines / printing, lines / whole, whole / bare,
      written >= expected ? "nothing lost" : "LINES LOST");
  std::filesystem::remove(floorFile);
  std::filesystem::remove(ourFile);
  dispatch->shutDown();
  return written >= expected ? 0 : 1;
}
