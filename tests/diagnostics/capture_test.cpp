#include <cerrno>
#include <gtest/gtest.h>

#include "diagnostics/log_file_redirector.h"
#include "diagnostics/system_log_capture.h"
#include "platform/simulated/simulated_standard_streams.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "support/seeds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr auto output = StandardStream::output;
constexpr auto error = StandardStream::error;

/// A process whose streams are captured and go into the day's file, wired as the application does.
struct CaptureDesk : SimulatedWorld {
  explicit CaptureDesk(uint64_t seed = 1) : SimulatedWorld(seed) {
    logger.setSink([this](std::string_view line) { capture.passOn(line); });
  }
  ~CaptureDesk() { simulation->runFor(1s); }

  void start() {
    capture.start();
    redirector.start();
    simulation->runFor(1s);
  }
  std::string dayFile() { return LogFileRedirector::path(files, dispatch.clock().wallNow()); }
  std::string written() { return files.read(dayFile()).value_or("no file"); }
  /// "source/LEVEL: message" of each entry that holds `part`.
  std::string entries(const std::string& part = "") {
    std::string out;
    for (const auto& entry : logger.getEntries(part)) {
      out +=
          entry.source + "/" + std::string(logLevelText(entry.level)) + ": " + entry.message + "\n";
    }
    return out;
  }

  Logger logger{dispatch, notifications};
  SimulatedStandardStreams streams{files, &faults};
  SystemLogCapture capture{dispatch, streams, logger};
  LogFileRedirector redirector{dispatch, files, streams, logger};
};

TEST(SystemLogCapture, EachPrintedLineIsOneEntryAndOneLineOfTheFile) {
  for (const size_t readBytes : {1U, 3U, 7U, 4096U}) {
    CaptureDesk desk;
    desk.start();
    desk.streams.readBytes = readBytes;
    desk.streams.print(output, "[Audio] bereit: ü\n\n  \nhalf");
    desk.logger.print("🎤 own");
    desk.streams.print(error, "oops\r\n");
    desk.streams.print(output, " a line\n" + std::string(10'000, 'x') + "\nthe end");
    desk.capture.stop();
    const std::string longLine(10'000, 'x');
    EXPECT_EQ(desk.entries("bereit"), "Audio/INFO: bereit: ü\n");
    EXPECT_EQ(desk.entries("half"), "System/INFO: half a line\n");
    EXPECT_EQ(desk.entries("own"), "System/INFO: 🎤 own\n");
    EXPECT_EQ(desk.entries("oops"), "System/ERROR: oops\n");
    EXPECT_EQ(desk.entries(longLine), "System/INFO: " + longLine + "\n");
    EXPECT_EQ(desk.entries("the end"), "System/INFO: the end\n");
    for (const char* line : {"half a line\n", "🎤 own\n", "oops\r\n", "[Audio] bereit: ü\n\n  \n"}) {
      EXPECT_EQ(text::split(desk.written(), line).size(), 2U) << line << desk.written();
    }
    // The two that tell of the start, and these six: nothing fed itself.
    EXPECT_EQ(desk.logger.getEntries().size(), 8U);
    EXPECT_EQ(desk.streams.inherited(output) + desk.streams.inherited(error), "");
  }
}

TEST(SystemLogCapture, BurstsFromBothStreamsLoseNothingInAnyOrder) {
  forEachSeed(30, [](Simulation& simulation) {
    CaptureDesk desk(simulation.seed());
    desk.start();
    const auto out = desk.dispatch.makeQueue("out");
    const auto err = desk.dispatch.makeQueue("err");
    for (int i = 0; i < 300; ++i) {
      out->post([&desk, i] { desk.streams.print(output, "o" + std::to_string(i) + "\n"); });
      err->post([&desk, i] { desk.streams.print(error, "e" + std::to_string(i) + "\n"); });
    }
    desk.simulation->runFor(1s);
    desk.capture.stop();
    std::map<std::string, int> next;
    for (const auto& entry : desk.logger.getEntries()) {
      const auto stream = entry.message.substr(0, 1);
      if (entry.message == stream + std::to_string(next[stream])) ++next[stream];
    }
    EXPECT_EQ(next["o"], 300);
    EXPECT_EQ(next["e"], 300);
    EXPECT_EQ(text::split(desk.written(), "\n").size(), 602U);
  });
}

TEST(SystemLogCapture, SecondStartAndStopChangeNothingAndAFailureLeavesTheStreams) {
  CaptureDesk desk;
  desk.faults.arm(1);
  desk.capture.start();
  EXPECT_FALSE(desk.capture.isCapturing());
  EXPECT_NE(desk.entries("not captured"), "");
  desk.streams.print(output, "plain\n");
  EXPECT_EQ(desk.streams.inherited(output), "plain\n");

  desk.capture.start();
  desk.capture.start();
  EXPECT_TRUE(desk.capture.isCapturing());
  desk.capture.stop();
  desk.capture.stop();
  EXPECT_FALSE(desk.streams.isCaptured());
  EXPECT_EQ(desk.logger.getEntries("Started capturing").size(), 1U);
}

TEST(SystemLogCapture, AFullDiskIsToldOnceAndTheLogGoesOn) {
  CaptureDesk desk;
  desk.start();
  desk.files.setCapacity(desk.written().size() + 10);
  for (int i = 0; i < 50; ++i) {
    desk.streams.print(output, "a line too much " + std::to_string(i) + "\n");
    desk.simulation->runFor(1s);
  }
  EXPECT_EQ(desk.logger.getEntries("too much").size(), 50U);
  EXPECT_EQ(desk.logger.getEntries("No space left on device").size(), 1U);
  EXPECT_TRUE(text::contains(desk.streams.inherited(output), "too much 49\n"));
}

TEST(SystemLogCapture, ALineWithoutEndIsCutBetweenCharacters) {
  CaptureDesk desk;
  desk.start();
  std::string endless = "x";
  while (endless.size() < 3 * SystemLogCapture::longestLine) endless += "ü";
  desk.streams.print(output, endless);
  desk.capture.stop();
  std::string joined;
  for (const auto& entry : desk.logger.getEntries("ü")) joined += entry.message;
  EXPECT_EQ(joined, endless);
}

TEST(LogFileRedirector, PrunesByTheCalendarAndStartsOnce) {
  CaptureDesk desk;
  const Date now = desk.dispatch.clock().wallNow();
  const std::string folder = desk.files.dataFolder() + "/Kestrin/Logs/";
  desk.files.put(folder + "older.log", "x", now - std::chrono::days(3) - 1s);
  desk.files.put(folder + "limit.log", "x", now - std::chrono::days(3));
  desk.files.put(folder + "folder/kept", "x", now - std::chrono::days(9));
  desk.files.put(desk.dayFile(), "from before\n", now);
  desk.start();
  EXPECT_FALSE(desk.files.exists(folder + "older.log"));
  EXPECT_TRUE(desk.files.exists(folder + "limit.log"));
  EXPECT_TRUE(desk.files.exists(folder + "folder/kept"));
  const auto said = "from before\n🗂️ Logging redirected to: " + desk.dayFile() + "\n";
  EXPECT_EQ(desk.written(), said);
  desk.redirector.start();
  desk.simulation->runFor(1s);
  EXPECT_EQ(desk.written(), said);
}

TEST(LogFileRedirector, AReadOnlyHomeIsToldOnceAndTheStreamsStay) {
  CaptureDesk desk;
  desk.files.makeReadOnly(desk.files.home());
  desk.start();
  desk.redirector.start();
  desk.streams.print(output, "goes on\n");
  desk.capture.stop();
  EXPECT_EQ(desk.streams.inherited(error),
            "⚠️ Failed to start LogFileRedirector: " + desk.files.dataFolder() +
                "/Kestrin: Read-only file system\n");
  EXPECT_EQ(desk.streams.inherited(output), "goes on\n");
  EXPECT_EQ(desk.logger.getEntries("goes on").size(), 1U);
}

}  // namespace
}  // namespace kestrin
