#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <thread>

#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"
#include "platform/json/json.h"
#include "platform/linux/posix_processes.h"
#include "support/worlds.h"

namespace kestrin::test {
namespace {

/// The built program with its backend alone, on a data file that outlives it.
class RunningBackend {
 public:
  RunningBackend(ThreadsDispatch& dispatch, Processes& processes, const std::string& store)
      : queue_(dispatch.makeQueue("test.killed")) {
    auto child = processes.start(
        {.program = KESTRIN_BINARY_DIR "/bin/kestrin-companion",
         .arguments = {"--services", "backend", "--ports", "0,0,0,0", "--store", store}},
        queue_, [this](const std::string& line, bool) { printed_.add(line + "\n"); },
        [this](int) { ended_ = true; });
    if (child) child_ = *child;
    constexpr std::string_view mark = "backend=";
    EXPECT_TRUE(eventually([&] { return printed_.has(std::string(mark)) || ended_; }));
    const std::string text = printed_.text();
    const size_t at = text.find(mark);
    if (at != std::string::npos) port = uint16_t(atoi(text.c_str() + at + mark.size()));
    EXPECT_NE(port, 0) << text;
  }
  ~RunningBackend() { kill(); }
  void kill() {
    if (child_ && !ended_) child_->kill();
    EXPECT_TRUE(eventually([&] { return ended_.load(); }));
  }

  uint16_t port = 0;

 private:
  QueueRef queue_;
  Log printed_;
  std::atomic<bool> ended_ = false;
  ChildProcessRef child_;
};

TEST(CompanionProgram, LosesNothingAcknowledgedToAKillAtAnyMoment) {
  const auto dispatch = ThreadsDispatch::make();
  const auto processes = makePosixProcesses();
  ScratchFolder folder;
  const std::string store = folder.file("store.sqlite");
  std::mutex mutex;
  std::set<std::string> acknowledged;
  std::atomic<int> next = 0;
  constexpr int rounds = 5, writers = 4;
  for (int round = 1; round <= rounds; ++round) {
    RunningBackend backend(*dispatch, *processes, store);
    ASSERT_NE(backend.port, 0);
    std::atomic<bool> over = false;
    std::atomic<int> written = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < writers; ++i) {
      threads.emplace_back([&] {
        while (!over) {
          const std::string word = "w" + std::to_string(next++);
          const Json body =
              Json::object({{"user_id", "u"}, {"transcript", word}, {"processed_text", word}});
          const std::string answer =
              kestrin::testing::ask(backend.port, "POST", "/log-transcription", body.dump());
          if (!answer.starts_with("HTTP/1.1 200")) continue;
          const std::lock_guard lock(mutex);
          acknowledged.insert(word);
          ++written;
        }
      });
    }
    // While the others are in the middle of theirs.
    EXPECT_TRUE(eventually([&] { return written >= 7 * round; }));
    backend.kill();
    over = true;
    for (auto& thread : threads) thread.join();
  }
  RunningBackend backend(*dispatch, *processes, store);
  const std::string answer = kestrin::testing::ask(backend.port, "GET", "/history/u?limit=100000");
  std::set<std::string> kept;
  const auto history = Json::parse(answer.substr(answer.find("\r\n\r\n") + 4));
  ASSERT_TRUE(history) << answer;
  for (const Json* entry : history->objectsAt("history"))
    EXPECT_TRUE(kept.insert(entry->stringAt("transcript", "")).second) << "kept twice";
  ASSERT_GE(acknowledged.size(), 7u * rounds);
  for (const std::string& word : acknowledged) EXPECT_TRUE(kept.contains(word)) << word;
}

TEST(CompanionProgram, ItsDataCanBeTakenAlongAndRemoved) {
  const auto dispatch = ThreadsDispatch::make();
  const auto processes = makePosixProcesses();
  ScratchFolder folder;
  const std::string store = folder.file("store.sqlite"), copy = folder.file("copy.kestrin");
  const auto maintain = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--store", store});
    return processes
        ->run({.program = KESTRIN_BINARY_DIR "/bin/kestrin-companion", .arguments = arguments},
              std::chrono::seconds(60))
        .value_or(ProcessOutput{.exitCode = -1})
        .exitCode;
  };
  const auto log = [](uint16_t port, const char* word) {
    const Json body =
        Json::object({{"user_id", "u"}, {"transcript", word}, {"processed_text", word}});
    EXPECT_TRUE(kestrin::testing::ask(port, "POST", "/log-transcription", body.dump())
                    .starts_with("HTTP/1.1 200"));
  };
  const auto history = [&](const RunningBackend& backend) {
    return kestrin::testing::ask(backend.port, "GET", "/history/u");
  };
  {
    RunningBackend backend(*dispatch, *processes, store);
    log(backend.port, "early");
    EXPECT_EQ(maintain({"--export", copy}), 0) << "while it works";
    log(backend.port, "late");
    EXPECT_EQ(maintain({"--erase"}), 1) << "it is in use";
    EXPECT_NE(history(backend).find("late"), std::string::npos);
  }
  EXPECT_EQ(maintain({"--erase"}), 0);
  EXPECT_FALSE(std::filesystem::exists(store));
  EXPECT_EQ(maintain({"--import", copy}), 0);
  RunningBackend backend(*dispatch, *processes, store);
  const std::string kept = history(backend);
  EXPECT_NE(kept.find("early"), std::string::npos) << kept;
  EXPECT_EQ(kept.find("late"), std::string::npos) << kept;
}

}  // namespace
}  // namespace kestrin::test
