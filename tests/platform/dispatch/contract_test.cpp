// What product code may rely on, whichever engine it runs on.
#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <poll.h>
#include <set>
#include <string>
#include <vector>

#include "platform/dispatch/simulation.h"
#include "platform/dispatch/threads.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

// Far beyond what a loaded machine needs: only a failure waits so long.
constexpr Duration generous = 60s;

struct OnThreads {
  std::unique_ptr<ThreadsDispatch> engine = ThreadsDispatch::make();

  bool runMainUntil(const std::function<bool()>& done) {
    const SteadyTime end = engine->clock().steadyNow() + generous;
    while (!done()) {
      if (engine->clock().steadyNow() > end) return false;
      pollfd wake{engine->mainLoop().wakeDescriptor(), POLLIN, 0};
      poll(&wake, 1, 1000);
      engine->mainLoop().drain();
    }
    return true;
  }
};

struct InSimulation {
  std::unique_ptr<Simulation> engine = Simulation::make();

  bool runMainUntil(const std::function<bool()>& done) { return engine->runUntil(done, generous); }
};

template <class World>
class DispatchContract : public testing::Test {
 protected:
  DispatchContract() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  Dispatch& dispatch() { return *world.engine; }
  /// Returns once everything posted to `queue` before has run.
  void settle(const QueueRef& queue) {
    auto settled = dispatch().makeSemaphore(0, "settled");
    queue->barrier([settled] { settled->signal(); });
    ASSERT_TRUE(settled->wait(generous));
  }

  World world;
};

using Engines = testing::Types<OnThreads, InSimulation>;
TYPED_TEST_SUITE(DispatchContract, Engines);

TYPED_TEST(DispatchContract, SerialQueueRunsOneJobAtATimeInPostingOrder) {
  auto queue = this->dispatch().makeQueue("serial");
  std::vector<int> order;  // unguarded on purpose: the queue is the guard
  bool current = true;
  for (int i = 0; i < 1000; ++i) {
    queue->post([&, i] {
      current = current && queue->isCurrent();
      if (i % 250 == 0) this->dispatch().clock().sleep(1ms, "a slow job");
      order.push_back(i);
    });
  }
  this->settle(queue);
  ASSERT_EQ(order.size(), 1000u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_TRUE(current);
  EXPECT_FALSE(queue->isCurrent());
}

TYPED_TEST(DispatchContract, ReadersRunSideBySideAndABarrierRunsAlone) {
  auto queue = this->dispatch().makeQueue("store", QueueKind::concurrent);
  auto first = this->dispatch().makeSemaphore(0, "the first reader");
  auto second = this->dispatch().makeSemaphore(0, "the second reader");
  std::atomic<int> inside{0};
  std::atomic<bool> met{true};
  std::atomic<int> readOld{0};
  std::atomic<int> readNew{0};
  int stored = 1;
  const auto reader = [&](Semaphore& mine, Semaphore& other) {
    ++inside;
    mine.signal();
    met = met && other.wait(generous);
    readOld += stored;
    --inside;
  };
  queue->post([&] { reader(*first, *second); });
  queue->post([&] { reader(*second, *first); });
  int insideDuringBarrier = -1;
  queue->barrier([&] {
    insideDuringBarrier = inside;
    this->dispatch().clock().sleep(2ms, "a slow write");
    stored = 10;
  });
  for (int i = 0; i < 3; ++i) queue->post([&] { readNew += stored; });
  queue->syncBarrier([&] { stored += 1; });
  queue->sync([&] { readNew += stored; });
  EXPECT_TRUE(met);
  EXPECT_EQ(insideDuringBarrier, 0);
  EXPECT_EQ(readOld, 2);
  EXPECT_EQ(readNew, 41);
}

TYPED_TEST(DispatchContract, SyncComesAfterEarlierJobsAndReturnsWhenItsJobEnded) {
  auto outer = this->dispatch().makeQueue("outer");
  auto inner = this->dispatch().makeQueue("inner");
  std::string trace;
  inner->post([&] {
    this->dispatch().clock().sleep(5ms, "a slow job");
    trace += "a";
  });
  std::string current;
  outer->sync([&] {
    inner->sync([&] {
      trace += "b";
      current =
          std::string(outer->isCurrent() ? "outer" : "") + (inner->isCurrent() ? "inner" : "");
    });
    trace += "c";
  });
  EXPECT_EQ(trace, "abc");
  EXPECT_EQ(current, "inner");
}

TYPED_TEST(DispatchContract, DelayedJobsComeInTheOrderOfTheirTimes) {
  auto queue = this->dispatch().makeQueue("delayed");
  auto last = this->dispatch().makeSemaphore(0, "the last of them");
  Clock& clock = this->dispatch().clock();
  const SteadyTime start = clock.steadyNow();
  const Date wallStart = clock.wallNow();
  std::string trace;
  Duration firstAfter{};
  queue->postAfter(60ms, [&] { trace += "d", last->signal(); });
  queue->postAfter(20ms, [&] { trace += "b"; });
  queue->postAfter(20ms, [&] { trace += "c"; });
  queue->postAfter(10ms, [&] { trace += "a", firstAfter = clock.steadyNow() - start; });
  ASSERT_TRUE(last->wait(generous));
  EXPECT_EQ(trace, "abcd");
  EXPECT_GE(firstAfter, 10ms);
  EXPECT_GE(clock.wallNow() - wallStart, 59ms);
}

TYPED_TEST(DispatchContract, ATimerCancelledOnItsQueueDoesNotFireEvenWhenItIsDue) {
  auto queue = this->dispatch().makeQueue("timers");
  auto held = std::make_shared<int>(0);
  int fired = 0;
  bool keptWhileRunning = false;
  TimerHandle cancelled;
  TimerHandle once;
  queue->post([&] {
    cancelled = this->dispatch().after(queue, 1ms, [&fired, held] { ++fired; });
    once = this->dispatch().after(queue, 2ms, [&, held] {
      once.reset();  // a job may drop its own timer and go on
      keptWhileRunning = held.use_count() >= 2;
      fired += 10;
    });
    this->dispatch().clock().sleep(20ms, "until both are due");
    cancelled->cancel();
  });
  queue->postAfter(40ms, [] {});
  this->dispatch().clock().sleep(60ms, "until both would have fired");
  this->settle(queue);
  EXPECT_EQ(fired, 10);
  EXPECT_TRUE(keptWhileRunning);
  cancelled.reset();
  EXPECT_EQ(held.use_count(), 1);
}

TYPED_TEST(DispatchContract, ARepeatingTimerOwesAHeldUpQueueOneFiring) {
  auto queue = this->dispatch().makeQueue("ticks");
  auto third = this->dispatch().makeSemaphore(0, "the third tick");
  int ticks = 0;
  int ticksAfterHold = -1;
  auto timer = this->dispatch().every(queue, 5ms, [&] {
    if (++ticks == 3) third->signal();
  });
  ASSERT_TRUE(third->wait(generous));
  queue->sync([&] {
    ticks = 0;
    this->dispatch().clock().sleep(60ms, "holding up the ticks");
    queue->post([&] { ticksAfterHold = ticks; });
  });
  this->settle(queue);
  EXPECT_EQ(ticksAfterHold, 1);
  queue->sync([&] { timer.reset(), ticks = 0; });
  this->dispatch().clock().sleep(20ms, "in which a living timer would tick");
  queue->sync([&] { EXPECT_EQ(ticks, 0); });
}

TYPED_TEST(DispatchContract, EachSignalLetsOneWaiterGoOn) {
  auto gate = this->dispatch().makeSemaphore(2, "the gate");
  EXPECT_TRUE(gate->wait(0ms));
  EXPECT_TRUE(gate->wait(-1ns));
  EXPECT_FALSE(gate->wait(0ms));
  EXPECT_FALSE(gate->wait(5ms));

  // Many more than there are processors: blocked jobs must not hold up the others.
  constexpr int waiters = 40;
  std::atomic<int> through{0};
  Group all(this->dispatch(), "all waiters");
  for (int i = 0; i < waiters; ++i) {
    all.enter();
    this->dispatch().globalQueue()->post([&] {
      if (gate->wait(generous)) ++through;
      all.leave();
    });
  }
  EXPECT_FALSE(all.wait(20ms));
  EXPECT_EQ(through, 0);
  this->dispatch().globalQueue()->post([&] {
    for (int i = 0; i < waiters; ++i) gate->signal();
  });
  EXPECT_TRUE(all.wait(generous));
  EXPECT_EQ(through, waiters);
  EXPECT_FALSE(gate->wait(0ms));
}

TYPED_TEST(DispatchContract, AGroupSaysOnceWhenEverythingHasLeft) {
  auto queue = this->dispatch().makeQueue("members");
  auto notices = this->dispatch().makeQueue("notices");
  Group group(this->dispatch(), "members");
  int noticed = 0;
  group.notify(notices, [&] { ++noticed; });
  this->settle(notices);
  EXPECT_EQ(noticed, 1) << "an empty group is done";

  group.enter();
  group.enter();
  group.notify(notices, [&] { noticed += 10; });
  queue->post([&] { group.leave(); });
  EXPECT_FALSE(group.wait(5ms));
  queue->post([&] { group.leave(); });
  EXPECT_TRUE(group.wait(generous));
  this->settle(notices);
  EXPECT_EQ(noticed, 11);
}

TYPED_TEST(DispatchContract, TheMainQueueRunsInItsLoopAlsoForOthers) {
  auto main = this->dispatch().mainQueue();
  auto worker = this->dispatch().makeQueue("worker");
  std::vector<std::string> trace;
  bool done = false;
  EXPECT_TRUE(main->isCurrent()) << "the loop's own callbacks count as main";
  main->post([&] { trace.push_back("posted"); });
  worker->post([&] {
    std::string seen = main->isCurrent() ? "main" : "worker";
    main->sync([&] { seen += main->isCurrent() ? "+main" : "+worker"; });
    main->post([&, seen] {
      trace.push_back(seen);
      done = true;
    });
  });
  ASSERT_TRUE(this->world.runMainUntil([&] { return done; }));
  EXPECT_EQ(trace, (std::vector<std::string>{"posted", "worker+main"}));
  bool late = false;
  auto timer = this->dispatch().after(main, 10ms, [&] { late = true; });
  EXPECT_TRUE(this->world.runMainUntil([&] { return late; }));
}

TYPED_TEST(DispatchContract, WhatHasNotBegunWhenTheEngineEndsIsDroppedAndReleased) {
  auto held = std::make_shared<int>(0);
  auto queue = this->dispatch().makeQueue("left over");
  auto gate = this->dispatch().makeSemaphore(0, "nothing");
  auto begun = this->dispatch().makeSemaphore(0, "begun");
  std::atomic<int> ran{0};
  queue->post([&ran, gate, begun] {
    begun->signal();
    gate->wait(-1ns);
    ran += 100;
  });
  ASSERT_TRUE(begun->wait(generous));
  queue->post([held, &ran] { ++ran; });
  queue->postAfter(1h, [held, &ran] { ++ran; });
  this->dispatch().mainQueue()->post([held, queue, &ran] { ++ran; });
  auto timer = this->dispatch().every(queue, 1h, [held, &ran] { ++ran; });
  this->world.engine.reset();
  timer.reset();
  queue->post([held, &ran] { ++ran; });
  queue->sync([] {});
  EXPECT_EQ(ran % 100, 0);
  EXPECT_EQ(held.use_count(), 1);
}

TYPED_TEST(DispatchContract, WhatCouldNeverReturnAbortsWithTheNames) {
  auto queue = this->dispatch().makeQueue("paste");
  auto main = this->dispatch().mainQueue();
  EXPECT_DEATH(queue->sync([&] { queue->sync([] {}); }), "'paste'.*'paste'");
  EXPECT_DEATH(
      {
        auto other = this->dispatch().makeQueue("typing");
        queue->sync([&] { other->sync([&] { queue->sync([] {}); }); });
      },
      "'paste'.*'typing'");
  // The main queue waits for the worker, which waits for the main queue.
  EXPECT_DEATH(
      {
        main->post([&] {
          queue->post([&] { main->sync([] {}); });
          queue->sync([] {});
        });
        this->world.runMainUntil([] { return false; });
      },
      "'mainQueue'.*'paste'|'paste'.*'mainQueue'");
}

#ifndef NDEBUG
TYPED_TEST(DispatchContract, AJobOfTheMainQueueThatWaitsIsReported) {
  auto main = this->dispatch().mainQueue();
  auto gate = this->dispatch().makeSemaphore(1, "the reply");
  EXPECT_DEATH(main->sync([&] { gate->wait(1ms); }), "mainQueue.*'the reply'");
  EXPECT_DEATH(main->sync([&] { this->dispatch().clock().sleep(1ms, "a pause"); }),
               "mainQueue.*'a pause'");
  bool taken = false;
  main->sync([&] { taken = gate->wait(0ms); });
  EXPECT_TRUE(taken) << "looking is not waiting";
}
#endif

}  // namespace
}  // namespace kestrin
