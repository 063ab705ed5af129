#include "platform/dispatch/threads.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace kestrin {
namespace {

using namespace std::chrono_literals;

constexpr Duration generous = 60s;

bool readable(MainLoop& loop) {
  pollfd wake{loop.wakeDescriptor(), POLLIN, 0};
  return poll(&wake, 1, 0) == 1;
}

TEST(ThreadsEngine, CallsThatBlockUnseenDoNotHoldUpThePool) {
  const auto engine = ThreadsDispatch::make();
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  constexpr int readers = 30;
  std::atomic<int> woken{0};
  Group all(*engine, "readers");
  for (int i = 0; i < readers; ++i) {
    all.enter();
    engine->globalQueue()->post([&] {
      char byte = 0;
      if (read(pipe[0], &byte, 1) == 1) ++woken;
      all.leave();
    });
  }
  // Posted last: it runs only if the pool grew past those that hang in read().
  engine->makeQueue("writer")->post([&] {
    const std::string bytes(readers, 'x');
    EXPECT_EQ(write(pipe[1], bytes.data(), bytes.size()), readers);
  });
  EXPECT_TRUE(all.wait(generous));
  EXPECT_EQ(woken, readers);
  close(pipe[0]);
  close(pipe[1]);
}

TEST(ThreadsEngine, TheLoopRunsUntilItIsToldToQuit) {
  const auto engine = ThreadsDispatch::make();
  int ticks = 0;
  const auto timer = engine->every(engine->mainQueue(), 1ms, [&] {
    if (++ticks == 3) engine->globalQueue()->post([&] { engine->mainLoop().quit(7); });
  });
  const int code = engine->mainLoop().run();
  EXPECT_EQ(code, 7);
  EXPECT_GE(ticks, 3);
}

TEST(ThreadsEngine, DrainRunsWhatWasThereAndLeavesTheLoopAwakeForTheRest) {
  const auto engine = ThreadsDispatch::make();
  MainLoop& loop = engine->mainLoop();
  std::string trace;
  engine->mainQueue()->post([&] {
    trace += "a";
    engine->mainQueue()->post([&] { trace += "d"; });
    EXPECT_TRUE(readable(loop)) << "a dialog's own loop must see that b waits";
    loop.drain();
    trace += "c";
  });
  engine->mainQueue()->post([&] { trace += "b"; });
  loop.drain();
  EXPECT_EQ(trace, "abdc");
  engine->mainQueue()->post([&] {
    trace += "e";
    engine->mainQueue()->post([&] { trace += "f"; });
  });
  loop.drain();
  EXPECT_EQ(trace, "abdce");
  EXPECT_TRUE(readable(loop));
  loop.drain();
  EXPECT_EQ(trace, "abdcef");
}

TEST(ThreadsEngine, EndingServesRunningJobsThatNeedTheMainQueue) {
  auto engine = ThreadsDispatch::make();
  auto begun = engine->makeSemaphore(0, "begun");
  auto gate = engine->makeSemaphore(0, "nothing");
  std::string trace;
  engine->makeQueue("worker")->post([&, main = engine->mainQueue()] {
    begun->signal();
    EXPECT_FALSE(gate->wait(-1ns)) << "waits end with the engine";
    main->sync([&] { trace += "main"; });
    trace += " worker";
  });
  ASSERT_TRUE(begun->wait(generous));
  engine.reset();
  EXPECT_EQ(trace, "main worker");
}

}  // namespace
}  // namespace kestrin
