#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "platform/dispatch/dispatch.h"

namespace kestrin::cli {

/// An engine whose clock and timers follow a recording instead of the time of day: `advance` is the
/// only thing that moves them. Queues are those of the engine behind it. Thread-safe.
class AudioClock final : public Dispatch {
 public:
  explicit AudioClock(Dispatch& engine);
  ~AudioClock() override;

  /// Moves the clock and posts the timers that are due, in the order of their times.
  void advance(Duration time);
  /// Returns when what was posted to the queues made here and to the main queue has run, and what
  /// followed of it. Not from one of these queues.
  void settle();

  Clock& clock() override;
  QueueRef mainQueue() override { return engine_.mainQueue(); }
  QueueRef globalQueue() override { return engine_.globalQueue(); }
  QueueRef makeQueue(std::string label, QueueKind kind) override;
  TimerHandle after(const QueueRef& queue, Duration delay, Job job) override;
  TimerHandle every(const QueueRef& queue, Duration interval, Job job) override;
  std::shared_ptr<Semaphore> makeSemaphore(int value, std::string name) override {
    return engine_.makeSemaphore(value, std::move(name));
  }

 private:
  class RecordedClock;
  struct Alarm;
  class Handle;
  TimerHandle add(const QueueRef& queue, Duration first, Duration interval, Job job);
  std::shared_ptr<Alarm> nextDue(Duration until);

  Dispatch& engine_;
  std::unique_ptr<RecordedClock> clock_;
  std::mutex mutex_;
  std::vector<std::shared_ptr<Alarm>> alarms_;
  std::vector<std::weak_ptr<Queue>> queues_;
};

}  // namespace kestrin::cli
