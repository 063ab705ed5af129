// The log of a whole process: this program is run again as a child that captures its own streams.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <iostream>
#include <set>
#include <thread>

#include "diagnostics/log_file_redirector.h"
#include "diagnostics/system_log_capture.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/linux_standard_streams.h"
#include "platform/linux/posix_processes.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr int writers = 4;
constexpr int linesEach = 4500;
constexpr int linesOfChild = 1000;
constexpr int printedLines = writers * linesEach + 2 * linesOfChild;

/// Lines of all lengths. The last ones are printed while no child prints: what is longer than 4096
/// bytes the kernel may mix with what other processes write.
constexpr int firstLong = 4000;
std::string line(int writer, int number) {
  const size_t length =
      number >= firstLong && number % 10 == 0 ? 6000 : static_cast<size_t>(number % 50);
  return "w" + std::to_string(writer) + "-" + std::to_string(number) + " " +
         std::string(length, 'x');
}

void printFrom(int writer, int begin, int end) {
  for (int i = begin; i < end; ++i) {
    const std::string text = line(writer, i) + "\n";
    if (writer == 0) std::printf("%s", text.c_str());
    if (writer == 1) std::cout << text;
    if (writer == 2) std::fputs(text.c_str(), stdout);
    if (writer == 3) std::cerr << text;
  }
}

using Threads = std::vector<std::jthread>;
Threads printers(int begin, int end) {
  Threads threads;
  for (int writer = 0; writer < writers; ++writer) {
    threads.emplace_back(printFrom, writer, begin, end);
  }
  return threads;
}

/// Runs in the child.
TEST(ProcessLogChild, DISABLED_Prints) {
  openClosedStreams();
  const auto dispatch = ThreadsDispatch::make();
  NotificationCenter notifications;
  LinuxFiles files;
  int64_t entries = 0;
  const auto counting = notifications.observe("logEntriesBatchAdded", [&](const Json& userInfo) {
    entries += userInfo.intAt("count").value_or(0);
  });
  {
    Logger logger(*dispatch, notifications);
    LinuxStandardStreams streams;
    SystemLogCapture capture(*dispatch, streams, logger);
    LogFileRedirector redirector(*dispatch, files, streams, logger);
    logger.setSink([&](std::string_view text) { capture.passOn(text); });
    capture.start();
    redirector.start();
    {
      const auto threads = printers(0, firstLong);
      // Children inherit the pipes; the last one outlives this process.
      const auto script = "i=0; while [ $i -lt " + std::to_string(linesOfChild) +
                          " ]; do i=$((i+1)); echo c$i; echo d$i >&2; done; sleep 3 &";
      EXPECT_EQ(std::system(script.c_str()), 0);
    }
    printers(firstLong, linesEach).clear();
    capture.stop();
    // Two more that tell of the start.
    EXPECT_TRUE(test::eventually(*dispatch, [&] { return entries == printedLines + 2; }))
        << entries;
  }
}

void expectWholeLog(const std::string& shellRedirection) {
  const test::ScratchFolder scratch;
  ProcessSpec spec{"/bin/sh",
                   {"-c", "exec /proc/" + std::to_string(::getpid()) +
                              "/exe --gtest_also_run_disabled_tests "
                              "--gtest_filter=ProcessLogChild.* " +
                              shellRedirection}};
  spec.environment["XDG_DATA_HOME"] = scratch.path();
  const auto ended = makePosixProcesses()->run(spec, 100s);
  ASSERT_TRUE(ended) << ended.error().description;
  EXPECT_EQ(ended->exitCode, 0) << ended->standardOutput << ended->standardError;

  LinuxFiles files;
  const auto logs = files.list(scratch.file("Kestrin/Logs"));
  ASSERT_EQ(logs.value().size(), 1U);
  auto lines = text::split(files.read((*logs)[0].path).value(), "\n");
  std::multiset<std::string> left(lines.begin(), lines.end());
  for (int writer = 0; writer < writers; ++writer) {
    for (int i = 0; i < linesEach; ++i) ASSERT_EQ(left.erase(line(writer, i)), 1U) << writer << i;
  }
  for (int i = 1; i <= linesOfChild; ++i) {
    ASSERT_EQ(left.erase("c" + std::to_string(i)), 1U);
    ASSERT_EQ(left.erase("d" + std::to_string(i)), 1U);
  }
  // The line that tells of the file, and what follows the last line end.
  EXPECT_EQ(left.size(), 2U);
}

TEST(ProcessLog, ABurstOfTwentyThousandLinesIsInTheFileAndInTheLogOnce) { expectWholeLog(""); }

TEST(ProcessLog, ClosedStreamsAreCapturedAsWell) { expectWholeLog(">&- 2>&- <&-"); }

}  // namespace
}  // namespace kestrin
