#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/turnstile.h"

namespace kestrin::dispatch {

class AlarmThread;
class WorkQueue;
struct SyncWaiter;

/// A job on its way through a queue. A waiter stands for somebody who runs the job itself once its
/// turn has come.
struct QueueEntry {
  Job job;
  Access access = Access::exclusive;
  SyncWaiter* waiter = nullptr;
};

/// Threads for everything that is not the main queue. It starts about as many as there are
/// processors, adds one for each that waits in the engine, and one whenever nothing was taken for a
/// while (a worker is held by a call that the engine cannot see). Threads without work end.
class ThreadPool {
 public:
  /// `onEnded` is called by each thread that ends after `beginStop`, as its last act.
  ThreadPool(AlarmThread& alarms, std::function<void()> onEnded);
  ~ThreadPool();

  void submit(std::shared_ptr<WorkQueue> queue, QueueEntry entry);
  /// From now on a thread ends as soon as nothing is queued.
  void beginStop();
  bool allEnded() const;
  /// After `beginStop`: waits for the last thread.
  void join();

  /// Marks the calling thread as waiting while it lives; outside the pool it does nothing.
  class Blocked {
   public:
    Blocked();
    ~Blocked();

   private:
    ThreadPool* pool_;
  };

 private:
  struct Item {
    std::shared_ptr<WorkQueue> queue;
    QueueEntry entry;
  };

  void work(std::list<std::thread>::iterator self);
  void grow();
  void addThread();
  /// Looks a little later whether more than `taken` items have been taken by then.
  void watch(uint64_t taken);
  void checkProgress(uint64_t takenThen);
  void joinEnded();

  AlarmThread& alarms_;
  const std::function<void()> onEnded_;
  const size_t processors_;
  mutable std::mutex mutex_;
  std::condition_variable hasWork_;
  std::deque<Item> items_;
  std::list<std::thread> threads_;
  std::list<std::thread> ended_;
  size_t idle_ = 0;
  size_t blocked_ = 0;
  uint64_t taken_ = 0;
  bool watching_ = false;
  bool stopping_ = false;
};

}  // namespace kestrin::dispatch
