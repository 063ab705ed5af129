#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/fiber.h"
#include "platform/dispatch/frame.h"
#include "platform/dispatch/sanitizers.h"
#include "platform/dispatch/turnstile.h"

namespace kestrin::dispatch {

class SimQueue;
class SimTimer;
struct Worker;

/// Splitmix64: small, and the same numbers everywhere.
class SeededNumbers {
 public:
  explicit SeededNumbers(uint64_t seed) : state_(seed) {}
  /// In [0, bound); `bound` at least 1.
  uint64_t below(uint64_t bound);

 private:
  uint64_t state_;
};

/// Somebody who cannot go on; lives on the blocked stack.
struct Wait {
  enum class For { semaphore, turn, sleep };
  For kind;
  std::string what;
  /// The queue, when waiting for a turn.
  const Queue* turnOf = nullptr;

  // Filled in by the core.
  Worker* worker = nullptr;  ///< null: the test itself
  const Frame* frame = nullptr;
  bool woken = false;
  bool unlimited = true;
};

/// A job on its way through a queue. A waiter stands for somebody who runs the job himself once his
/// turn has come.
struct SimEntry {
  Job job;
  Access access = Access::exclusive;
  Wait* waiter = nullptr;
  order::PostEdge posted;
};

/// One thing that can go on: a job whose turn it is, or a job that was woken.
struct Ready {
  const Wait* woken = nullptr;
  std::shared_ptr<SimQueue> queue;
  SimEntry entry;
};

/// The scheduler of the simulation: what can go on, what waits until when, and the clock. Queues,
/// semaphores and timers keep it alive, so that those left over after the engine are harmless.
class SimCore {
 public:
  explicit SimCore(uint64_t seed);

  struct AlarmKey {
    Duration time{};
    uint64_t number = 0;
    auto operator<=>(const AlarmKey&) const = default;
  };

  // For queues, semaphores and timers; inside an `Unobserved`.
  void makeReady(Ready ready) { ready_.push_back(std::move(ready)); }
  /// Blocks the running code until `wake`, or until `deadline`.
  void block(Wait& wait, std::optional<Duration> deadline);
  void wake(Wait& wait);
  AlarmKey setAlarm(Duration time, std::shared_ptr<SimTimer> timer);
  void forgetAlarm(const AlarmKey& key);
  /// Aborts when a job of the main queue may not wait like this.
  void checkMayWait(const std::string& what) const;
  uint64_t enlist(SimQueue* queue);
  void delist(uint64_t number) { queues_.erase(number); }

  bool ending() const { return ending_; }
  Duration now() const { return now_; }
  const Frame* frame() const { return frame_; }
  void setFrame(const Frame* frame) { frame_ = frame; }
  SeededNumbers& choices() { return choices_; }

  // For the verbs of the simulation; by the test itself.
  /// Lets one thing go on, the seed's choice; false when nothing can.
  bool step();
  void advanceTo(Duration time);
  std::optional<Duration> nextDeadline() const;
  /// On a worker's stack: runs the job that it was given.
  void runJob(Worker& worker);
  /// Drops everything that has not begun, and gives up what waits.
  void end();
  std::vector<std::string> stuck() const;
  std::string dump() const;

  /// Between the test's code and the jobs that run meanwhile.
  class RunByTest {
   public:
    RunByTest(SimCore& core, const char* verb);
    ~RunByTest();
    RunByTest(const RunByTest&) = delete;
    RunByTest& operator=(const RunByTest&) = delete;

   private:
    SimCore& core_;
    std::optional<order::Unobserved> section_;
  };

  /// Set once; for comparison only.
  const Queue* mainQueue = nullptr;

 private:
  struct Alarm {
    std::shared_ptr<SimTimer> timer;
    Wait* wait = nullptr;
  };

  void enter(Worker& worker);
  std::unique_ptr<Worker> workerFor(SimQueue& queue);
  void giveBack(std::unique_ptr<Worker> worker);
  void waitInTest(Wait& wait);
  const Wait* waiterHolding(const Queue* queue) const;
  void refuseCycleThroughMain(const Wait& wait) const;

  const uint64_t seed_;
  SeededNumbers choices_;
  Duration now_{0};
  std::vector<Ready> ready_;
  std::map<AlarmKey, Alarm> alarms_;
  uint64_t alarmNumbers_ = 0;
  std::vector<Wait*> waits_;
  std::map<uint64_t, SimQueue*> queues_;
  uint64_t queueNumbers_ = 0;
  std::vector<std::unique_ptr<Worker>> idle_;
  /// Those that are in the middle of a job.
  std::vector<std::unique_ptr<Worker>> atWork_;
  Worker* running_ = nullptr;
  const Frame* frame_ = nullptr;
  uint64_t stepsAtThisTime_ = 0;
  bool ending_ = false;
  char testToJobs_ = 0;
  char jobsToTest_ = 0;
};

std::shared_ptr<Semaphore> makeSimSemaphore(std::shared_ptr<SimCore> core, int value,
                                            std::string name);
/// `interval` zero fires once.
TimerHandle startSimTimer(const std::shared_ptr<SimCore>& core, QueueRef queue, Duration delay,
                          Duration interval, Job job);
/// A timer that nobody holds.
void postSimTimer(const std::shared_ptr<SimCore>& core, QueueRef queue, Duration delay, Job job);

}  // namespace kestrin::dispatch
