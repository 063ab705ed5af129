#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/dates/dates.h"

namespace kestrin {

using Duration = std::chrono::nanoseconds;
using Job = std::function<void()>;

/// A point on the monotonic time line of the engine; only differences mean anything.
struct SteadyTime {
  Duration sinceStart{};

  auto operator<=>(const SteadyTime&) const = default;
  friend Duration operator-(SteadyTime a, SteadyTime b) { return a.sinceStart - b.sinceStart; }
  friend SteadyTime operator+(SteadyTime a, Duration d) { return {a.sinceStart + d}; }
};

/// The only source of time in the product. Thread-safe.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date wallNow() const = 0;
  virtual SteadyTime steadyNow() const = 0;
  /// Blocks the calling job. Never call it on the main queue; `why` is shown when a program is
  /// stuck.
  virtual void sleep(Duration duration, std::string_view why) = 0;
};

/// An ordered list of work. Jobs of a serial queue run one at a time, in posting order. On a
/// concurrent queue jobs run side by side, and a barrier job runs alone: after everything posted
/// before it, before everything posted after it. Thread-safe. Keep queues as
/// `std::shared_ptr<Queue>`; pending jobs keep their queue alive.
class Queue {
 public:
  virtual ~Queue() = default;
  virtual const std::string& label() const = 0;
  /// Runs `job` later on this queue; returns at once.
  virtual void post(Job job) = 0;
  /// As `post`, once `delay` has passed. Cannot be cancelled: use `Dispatch::after` for that.
  virtual void postAfter(Duration delay, Job job) = 0;
  /// Concurrent queues: runs `job` alone. On a serial queue the same as `post`.
  virtual void barrier(Job job) = 0;
  /// Runs `job` on this queue and returns when it has ended. A `sync` from a job of this same queue
  /// is a programming error and aborts with both names; so does one onto the main queue from a job
  /// that the main queue waits for.
  virtual void sync(Job job) = 0;
  /// As `sync`, as a barrier.
  virtual void syncBarrier(Job job) = 0;
  /// True inside a job of this queue.
  virtual bool isCurrent() const = 0;
};
using QueueRef = std::shared_ptr<Queue>;

/// A pending or repeating job. Destroying (or cancelling) it on the queue it fires on guarantees
/// that it does not fire afterwards; from another thread one firing may already be under way.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void cancel() = 0;
};
using TimerHandle = std::unique_ptr<Timer>;

/// Counting semaphore. Thread-safe.
class Semaphore {
 public:
  virtual ~Semaphore() = default;
  virtual void signal() = 0;
  /// True when signalled, false at the time-out. A negative time-out waits without limit.
  virtual bool wait(Duration timeout) = 0;
  void wait() { wait(Duration(-1)); }
};

enum class QueueKind { serial, concurrent };

/// The engine: makes queues, timers and semaphores. Two implementations: threads (the product) and
/// simulation (deterministic, virtual time). Product code takes a `Dispatch&` and uses nothing else
/// for asynchrony.
class Dispatch {
 public:
  virtual ~Dispatch() = default;

  virtual Clock& clock() = 0;
  /// The main loop's queue. Nothing on it may wait.
  virtual QueueRef mainQueue() = 0;
  /// Concurrent; for work that may take long or block.
  virtual QueueRef globalQueue() = 0;
  virtual QueueRef makeQueue(std::string label, QueueKind kind = QueueKind::serial) = 0;

  /// Fires `job` once on `queue` after `delay`.
  virtual TimerHandle after(const QueueRef& queue, Duration delay, Job job) = 0;
  /// Fires `job` on `queue` every `interval`, first after one interval. A late firing is not made
  /// up for.
  virtual TimerHandle every(const QueueRef& queue, Duration interval, Job job) = 0;

  /// `name` says what a waiter waits for; it is shown when a program is stuck.
  virtual std::shared_ptr<Semaphore> makeSemaphore(int value, std::string name) = 0;
};

/// Counts outstanding work and says when all of it has ended.
class Group {
 public:
  explicit Group(Dispatch& dispatch, std::string name);
  void enter();
  void leave();
  /// True when the count reached zero, false at the time-out (negative: no limit).
  bool wait(Duration timeout);
  /// Runs `job` on `queue` when the count is next zero (at once if it is zero now). It is posted
  /// before a `wait` for the same zero returns.
  void notify(QueueRef queue, Job job);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kestrin
