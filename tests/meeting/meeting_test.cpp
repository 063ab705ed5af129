#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

#include "companion/engine/speech_samples.h"
#include "platform/json/json.h"
#include "platform/linux/posix_processes.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// A child of the test with what it printed; ended with it.
class Child {
 public:
  Child(Dispatch& dispatch, Processes& processes, const std::string& program,
        std::vector<std::string> arguments, std::map<std::string, std::string> environment = {}) {
    const auto started = processes.start(
        {.program = program, .arguments = std::move(arguments), .environment = environment},
        dispatch.makeQueue(program),
        [log = log_](std::string line, bool) { log->add(line + "\n"); },
        [ended = ended_](int code) { *ended = code; });
    EXPECT_TRUE(started) << program;
    if (started) child_ = *started;
  }
  ~Child() {
    if (child_ && *ended_ < 0) child_->terminate();
    eventually([this] { return *ended_ >= 0; });
  }
  /// Waits for a line with `part`.
  std::string line(const std::string& part) {
    std::string found;
    eventually([&] {
      for (const auto& line : text::split(log_->text(), "\n")) {
        if (text::contains(line, part)) found = line;
      }
      return !found.empty() || *ended_ >= 0;
    });
    return found;
  }
  void interrupt() { ::kill(child_->pid(), SIGINT); }
  int exitCode() {
    eventually([this] { return *ended_ >= 0; });
    return *ended_;
  }
  std::string printed() const { return log_->text(); }

 private:
  std::shared_ptr<Log> log_ = std::make_shared<Log>();
  std::shared_ptr<std::atomic<int>> ended_ = std::make_shared<std::atomic<int>>(-1);
  ChildProcessRef child_;
};

/// The words of one side, in the order of its lines.
std::string words(const std::string& printed, const std::string& channel) {
  std::string words;
  for (const auto& line : text::split(printed, "\n")) {
    const auto event = Json::parse(line);
    if (event && event->stringAt("event") == "line" && event->stringAt("channel") == channel)
      words += event->stringAt("text", "") + " ";
  }
  return words;
}

TEST(Meeting, BothSidesOfARealSoundServerBecomeLines) {
  if (!std::getenv("PRIVATE_SOUND_DIR")) GTEST_SKIP() << "needs scripts/private-sound";
  ScratchFolder folder;
  const auto dispatch = ThreadsDispatch::make();
  const auto processes = makePosixProcesses();
  const std::string bin = KESTRIN_BINARY_DIR "/bin/";
  const auto samples = testing::synthesised(folder.path());
  ASSERT_GE(samples.size(), 2u) << "no synthesiser";
  const auto &mine = samples[0], &theirs = samples[3];

  Child companion(*dispatch, *processes, bin + "kestrin-companion",
                  {"--ports", "0,0,0,0", "--store", folder.file("store.sqlite")});
  ASSERT_NE(companion.line("ready:"), "") << companion.printed();
  std::map<std::string, std::string> environment{{"HOME", folder.path()},
                                                 {"XDG_CONFIG_HOME", folder.file("config")},
                                                 {"XDG_DATA_HOME", folder.file("data")},
                                                 {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nobus"}};
  for (const auto& word : text::split(companion.line("listening:"), " ")) {
    const auto parts = text::split(word, "=");
    if (parts.size() == 2)
      environment["KESTRIN_" + text::upper(parts[0]) + "_URL"] = "http://127.0.0.1:" + parts[1];
  }
  Child live(*dispatch, *processes, bin + "kestrin", {"live", "--json"}, environment);
  ASSERT_NE(live.line("Listening to the microphone"), "") << live.printed();
  Child microphone(*dispatch, *processes, "paplay", {"-d", "vmic", folder.file("said-0.wav")});
  Child speakers(*dispatch, *processes, "paplay", {"-d", "speakers", folder.file("said-3.wav")});
  const auto errors = [&](const testing::SpeechSample& said, const std::string& channel) {
    return testing::wordErrors(said.words, words(live.printed(), channel));
  };
  // Live sound is cut where the detectors say, so a word at an end may be lost.
  EXPECT_TRUE(eventually([&] {
    return errors(mine, "microphone") <= 2 && errors(theirs, "system") <= 2;
  })) << live.printed();
  EXPECT_NE(live.line("\"event\":\"feedback\""), "");
  live.interrupt();
  EXPECT_EQ(live.exitCode(), 0) << live.printed();
}

}  // namespace
}  // namespace kestrin::test
