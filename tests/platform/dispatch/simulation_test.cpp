#include "platform/dispatch/simulation.h"

#include <atomic>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

#include "platform/dispatch/sanitizers.h"
#include "support/seeds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

/// A busy little world; returns what happened, in order.
std::string busyWorld(uint64_t seed) {
  const auto world = Simulation::make(seed);
  Trace trace;
  auto gate = world->makeSemaphore(0, "gate");
  auto store = world->makeQueue("store", QueueKind::concurrent);
  std::vector<QueueRef> queues;
  for (char name = 'a'; name < 'f'; ++name) {
    auto queue = world->makeQueue(std::string(1, name));
    for (int i = 0; i < 3; ++i) {
      queue->postAfter(10ms * i, [&, name, i] {
        trace += name + std::to_string(i) + " ";
        if (i == 0) gate->wait(20ms);
        if (i == 1) gate->signal();
        store->sync([&] { world->clock().sleep(1ms * static_cast<int>(world->random(5)), "io"); });
        store->barrier([&, name] { trace += std::string("|") + name; });
      });
    }
    queues.push_back(std::move(queue));
  }
  world->runFor(1s);
  return trace.text() + std::to_string(world->elapsed().count());
}

TEST(Simulation, TheSameSeedGivesTheSameOrderToTheByte) {
  std::set<std::string> different;
  for (uint64_t seed = 1; seed <= 50; ++seed) {
    const std::string trace = busyWorld(seed);
    ASSERT_EQ(trace, busyWorld(seed)) << "seed " << seed;
    different.insert(trace);
  }
  EXPECT_GT(different.size(), 45u);
}

TEST(Simulation, TheSeedPermutesWhatIsDueAtOnceButNotOneQueue) {
  std::set<std::string> orders;
  for (uint64_t seed = 1; seed <= 300; ++seed) {
    const auto world = Simulation::make(seed);
    Trace trace;
    std::vector<QueueRef> queues;
    for (const char* pair : {"aA", "bB", "c"}) {
      queues.push_back(world->makeQueue(pair));
      for (const char* letter = pair; *letter != 0; ++letter) {
        queues.back()->postAfter(10ms, [&trace, letter] { trace += std::string(1, *letter); });
      }
    }
    world->runFor(10ms);
    const std::string& order = trace.text();
    for (const char* pair : {"aA", "bB", "c"}) {
      if (pair[1] != 0) {
        EXPECT_LT(order.find(pair[0]), order.find(pair[1])) << order;
      }
    }
    orders.insert(order);
  }
  // 5! / 2!^2 orders keep each queue's own.
  EXPECT_EQ(orders.size(), 30u);
}

TEST(Simulation, RunningForwardFiresEachDeadlineAndJumpingFiresOnceLate) {
  const auto world = Simulation::make();
  int ticks = 0;
  std::string late;
  auto timer = world->every(world->mainQueue(), 25ms, [&] { ++ticks; });
  world->runFor(1s);
  EXPECT_EQ(ticks, 40);
  EXPECT_EQ(world->elapsed(), 1s);
  world->mainQueue()->postAfter(200ms, [&] { late += "b"; });
  world->mainQueue()->postAfter(100ms,
                                [&] { late += "a" + std::to_string(world->elapsed() / 1ms); });
  world->jump(1s);
  EXPECT_EQ(ticks, 41);
  EXPECT_EQ(late, "a2000b");
  world->runFor(25ms);
  EXPECT_EQ(ticks, 42) << "the beat goes on in its old places";
  EXPECT_EQ(world->clock().wallNow() - Date(1772442000s), 2025ms);
}

TEST(Simulation, RunUntilStopsAtTheEventTheLimitOrTheEndOfEverything) {
  const auto world = Simulation::make();
  bool happened = false;
  world->globalQueue()->postAfter(3s, [&] { happened = true; });
  EXPECT_FALSE(world->runUntil([&] { return happened; }, 1s));
  EXPECT_EQ(world->elapsed(), 1s);
  EXPECT_TRUE(world->runUntil([&] { return happened; }, 5s));
  EXPECT_EQ(world->elapsed(), 3s);
  EXPECT_FALSE(world->runUntil([] { return false; }, 1h));
  EXPECT_EQ(world->elapsed(), 3s) << "nothing is left that could take an hour";
}

TEST(Simulation, ALostWakeUpIsFoundAndNamed) {
  std::map<std::string, int> outcomes;
  forEachSeed(100, [&](Simulation& world) {
    auto consumer = world.makeQueue("consumer");
    auto producer = world.makeQueue("producer");
    auto state = world.makeQueue("state");
    auto news = world.makeSemaphore(0, "news");
    std::atomic<bool> ready{false};
    std::atomic<bool> waiting{false};
    consumer->post([&] {
      if (ready) return;
      world.clock().sleep(1ms, "a moment between the look and the wait");
      waiting = true;
      news->wait();
    });
    producer->postAfter(1ms, [&] {
      ready = true;
      if (waiting) news->signal();
    });
    auto beat = world.every(state, 25ms, [] {});
    world.runFor(1s);
    outcomes[world.stuck().empty() ? "fine" : world.stuck().front()]++;
  });
  EXPECT_EQ(outcomes.size(), 2u);
  EXPECT_GT(outcomes["fine"], 10);
  EXPECT_GT(outcomes["consumer waits for 'news'"], 10);
}

TEST(Simulation, QueuesThatWaitForEachOtherAreNamedAlthoughTheWorldGoesOn) {
  const auto world = Simulation::make();
  auto left = world->makeQueue("left");
  auto right = world->makeQueue("right");
  auto other = world->makeQueue("other");
  const auto callAcross = [&](const QueueRef& from, const QueueRef& to) {
    from->post([&world, to] {
      world->clock().sleep(1ms, "work");
      to->sync([] {});
    });
  };
  callAcross(left, right);
  callAcross(right, left);
  other->post([&] { world->makeSemaphore(0, "an answer in an hour")->wait(1h); });
  world->runFor(1s);
  const auto stuck = world->stuck();
  ASSERT_EQ(stuck.size(), 2u) << world->dump();
  EXPECT_EQ(std::set<std::string>(stuck.begin(), stuck.end()),
            (std::set<std::string>{"left waits for its turn on 'right'",
                                   "right waits for its turn on 'left'"}));
}

TEST(Simulation, TheMainQueueMayNotWaitForAJobThatTakesTime) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto world = Simulation::make();
  auto slow = world->makeQueue("slow");
  slow->post([&] { world->clock().sleep(40ms, "a call into another program"); });
  world->runReady();
  world->mainQueue()->post([&] { slow->sync([] {}); });
  EXPECT_DEATH(world->runFor(1s), "mainQueue waits for its turn on 'slow'");
}

TEST(Simulation, ExceptionsInFlightStayWithTheirJob) {
  const auto world = Simulation::make();
  Trace caught;
  for (const char* name : {"one", "two", "three"}) {
    world->makeQueue(name)->post([&, name] {
      try {
        throw std::runtime_error(name);
      } catch (const std::exception&) {
        world->clock().sleep(1ms, "in the middle of a catch");
        try {
          throw;
        } catch (const std::exception& again) {
          if (again.what() == std::string(name)) caught += "+";
        }
      }
    });
  }
  world->runFor(1s);
  EXPECT_EQ(caught.text(), "+++");
}

TEST(Simulation, TheSeedComesFromTheEnvironmentUnlessGiven) {
  const char* before = std::getenv("KESTRIN_SEED");
  const std::string kept = before != nullptr ? before : "";
  setenv("KESTRIN_SEED", "77", 1);
  EXPECT_EQ(Simulation::make()->seed(), 77u);
  EXPECT_EQ(Simulation::make(5)->seed(), 5u);
  std::vector<uint64_t> seeds;
  forEachSeed(3, [&](Simulation& world) { seeds.push_back(world.seed()); });
  EXPECT_EQ(seeds, std::vector<uint64_t>{77});
  unsetenv("KESTRIN_SEED");
  EXPECT_EQ(Simulation::make()->seed(), 1u);
  if (before != nullptr) setenv("KESTRIN_SEED", kept.c_str(), 1);
}

#ifdef KESTRIN_TSAN
/// Two queues that touch one number; with `ordered` the second is told by the first.
int touchFromTwoQueues(bool ordered) {
  const auto world = Simulation::make();
  int number = 0;
  auto first = world->makeQueue("first");
  auto second = world->makeQueue("second");
  for (int round = 0; round < 20; ++round) {
    first->post([&] {
      ++number;
      if (ordered) second->sync([&] { ++number; });
    });
    if (!ordered) second->post([&] { ++number; });
    world->runFor(1ms);
  }
  return number;
}

TEST(Simulation, ARaceBetweenQueuesIsReportedAndARightProgramIsNot) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EQ(touchFromTwoQueues(true), 40);
  EXPECT_EXIT(
      {
        touchFromTwoQueues(false);
        std::exit(0);
      },
      testing::ExitedWithCode(66), "data race");
}
#endif

}  // namespace
}  // namespace kestrin
