#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "platform/dispatch/alarm_thread.h"
#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/frame.h"
#include "platform/dispatch/thread_pool.h"

namespace kestrin::dispatch {

/// What the calling thread holds at the moment.
const Frame* currentFrame();

/// Runs on `queue` while it lives. `outer` is the code that waits for this job, if it is another
/// thread's; otherwise what this thread held before.
class RunningOn {
 public:
  explicit RunningOn(const Queue* queue) : RunningOn(queue, currentFrame()) {}
  RunningOn(const Queue* queue, const Frame* outer);
  ~RunningOn();
  RunningOn(const RunningOn&) = delete;
  RunningOn& operator=(const RunningOn&) = delete;

 private:
  Frame frame_;
  const Frame* before_;
};

/// What the parts of the threads engine share. Queues and semaphores keep it alive, so that those
/// left over after the engine are harmless.
class ThreadCore {
 public:
  explicit ThreadCore(std::function<void()> onThreadEnded)
      : mainThread(std::this_thread::get_id()), pool(alarms, std::move(onThreadEnded)) {}

  bool stopping() const { return stopping_.load(std::memory_order_relaxed); }
  /// Posts do nothing from now on; waits and sleeps end.
  void beginStop();

  bool onMainThread() const { return std::this_thread::get_id() == mainThread; }
  /// Reports a wait that holds up the main queue.
  void checkMayWait(std::string_view verb, std::string_view what);

  /// The main thread waits for its turn on `queue`. Aborts when a job of that queue waits for the
  /// main queue.
  void beginMainWait(const Queue& queue);
  void endMainWait();
  /// Another thread waits in a `sync` onto the main queue; `frame` is what it holds. Aborts when
  /// the main thread waits for that.
  void beginCallOfMain(const Frame* frame);
  void endCallOfMain(const Frame* frame);

  void sleep(Duration duration);

  /// Lets `beginStop` end a wait on `condition` while it lives.
  class Interruptible {
   public:
    Interruptible(ThreadCore& core, std::mutex& mutex, std::condition_variable& condition);
    ~Interruptible();
    Interruptible(const Interruptible&) = delete;
    Interruptible& operator=(const Interruptible&) = delete;

   private:
    friend class ThreadCore;
    ThreadCore& core_;
    std::mutex& mutex_;
    std::condition_variable& condition_;
  };

  const std::thread::id mainThread;
  /// Set once, before any job runs; for comparison only.
  const Queue* mainQueue = nullptr;
  AlarmThread alarms;
  ThreadPool pool;

 private:
  std::atomic<bool> stopping_{false};
  std::mutex mutex_;
  const Queue* mainWaitsFor_ = nullptr;
  /// The same, but only when a job of the main queue waits: before its loop runs, the main thread
  /// may.
  std::atomic<const Queue*> mainJobWaitsFor_{nullptr};
  std::multiset<const Frame*> callersOfMain_;
  std::set<Interruptible*> waits_;
};

/// The latest time that a wait of `timeout` from now may end; far away for absurd durations.
std::chrono::steady_clock::time_point deadlineAfter(Duration timeout);

std::shared_ptr<Semaphore> makeThreadSemaphore(std::shared_ptr<ThreadCore> core, int value,
                                               std::string name);
/// `interval` zero fires once.
TimerHandle startThreadTimer(std::shared_ptr<ThreadCore> core, QueueRef queue, Duration delay,
                             Duration interval, Job job);
/// A timer that nobody holds.
void postThreadTimer(ThreadCore& core, QueueRef queue, Duration delay, Job job);

}  // namespace kestrin::dispatch
