#include "platform/dispatch/simulation.h"

#include <algorithm>
#include <cstdlib>

#include "platform/dispatch/sim_core.h"
#include "platform/dispatch/sim_queue.h"

namespace kestrin {
namespace {

using namespace dispatch;

// 2026-03-02T09:00:00Z
constexpr Date wallStart{std::chrono::seconds(1'772'442'000)};

class VirtualClock final : public Clock {
 public:
  explicit VirtualClock(std::shared_ptr<SimCore> core) : core_(std::move(core)) {}

  Date wallNow() const override {
    return wallStart + std::chrono::duration_cast<Date::duration>(steadyNow().sinceStart);
  }
  SteadyTime steadyNow() const override {
    order::Unobserved section;
    return {core_->now()};
  }
  void sleep(Duration duration, std::string_view why) override {
    if (duration <= Duration(0)) return;
    order::Unobserved section;
    Wait wait{Wait::For::sleep, std::string(why)};
    core_->checkMayWait(wait.what);
    if (!core_->ending()) core_->block(wait, core_->now() + duration);
  }

 private:
  const std::shared_ptr<SimCore> core_;
};

class Engine final : public Simulation {
 public:
  explicit Engine(uint64_t seed)
      : seed_(seed),
        // The simulated ports draw from a row of their own: a new port does not change the order.
        numbers_(~seed),
        core_(std::make_shared<SimCore>(seed)),
        clock_(core_),
        main_(makeQueue("mainQueue", QueueKind::serial)),
        global_(makeQueue("globalQueue", QueueKind::concurrent)) {
    core_->mainQueue = main_.get();
  }
  ~Engine() override {
    SimCore::RunByTest run(*core_, "end of the simulation");
    core_->end();
  }

  Clock& clock() override { return clock_; }
  QueueRef mainQueue() override { return main_; }
  QueueRef globalQueue() override { return global_; }
  QueueRef makeQueue(std::string label, QueueKind kind) override {
    return std::make_shared<SimQueue>(core_, std::move(label), kind);
  }
  TimerHandle after(const QueueRef& queue, Duration delay, Job job) override {
    return startSimTimer(core_, queue, delay, Duration(0), std::move(job));
  }
  TimerHandle every(const QueueRef& queue, Duration interval, Job job) override {
    const Duration step = std::max(interval, Duration(1));
    return startSimTimer(core_, queue, step, step, std::move(job));
  }
  std::shared_ptr<Semaphore> makeSemaphore(int value, std::string name) override {
    return makeSimSemaphore(core_, value, std::move(name));
  }

  void runFor(Duration duration) override {
    SimCore::RunByTest run(*core_, "runFor");
    const Duration end = core_->now() + duration;
    runAllReady();
    for (auto next = core_->nextDeadline(); next && *next <= end; next = core_->nextDeadline()) {
      core_->advanceTo(*next);
      runAllReady();
    }
    core_->advanceTo(end);
  }

  void jump(Duration duration) override {
    SimCore::RunByTest run(*core_, "jump");
    core_->advanceTo(core_->now() + duration);
    runAllDue();
  }

  void runReady() override {
    SimCore::RunByTest run(*core_, "runReady");
    runAllDue();
  }

  bool runUntil(const std::function<bool()>& done, Duration limit) override {
    SimCore::RunByTest run(*core_, "runUntil");
    const Duration end = core_->now() + limit;
    while (!done()) {
      if (core_->step()) continue;
      const auto next = core_->nextDeadline();
      if (!next) return false;
      core_->advanceTo(std::min(*next, end));
      if (*next > end) return false;
    }
    return true;
  }

  Duration elapsed() const override { return clock_.steadyNow().sinceStart; }
  uint64_t seed() const override { return seed_; }
  std::vector<std::string> stuck() const override {
    order::Unobserved section;
    return core_->stuck();
  }
  std::string dump() const override {
    order::Unobserved section;
    return core_->dump();
  }
  uint64_t random(uint64_t bound) override {
    order::Unobserved section;
    return numbers_.below(bound);
  }

 private:
  void runAllReady() {
    while (core_->step()) {
    }
  }

  void runAllDue() {
    // A timer without delay is due although the clock stands.
    for (runAllReady(); core_->nextDeadline() == core_->now(); runAllReady()) {
      core_->advanceTo(core_->now());
    }
  }

  const uint64_t seed_;
  SeededNumbers numbers_;
  const std::shared_ptr<SimCore> core_;
  VirtualClock clock_;
  const QueueRef main_;
  const QueueRef global_;
};

uint64_t chosenSeed(uint64_t seed) {
  if (seed != 0) return seed;
  const char* text = std::getenv("KESTRIN_SEED");
  const uint64_t chosen = text != nullptr ? std::strtoull(text, nullptr, 10) : 0;
  return chosen != 0 ? chosen : 1;
}

}  // namespace

std::unique_ptr<Simulation> Simulation::make(uint64_t seed) {
  return std::make_unique<Engine>(chosenSeed(seed));
}

}  // namespace kestrin
