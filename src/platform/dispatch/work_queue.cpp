#include "platform/dispatch/work_queue.h"

namespace kestrin::dispatch {

// After so many jobs in a row a busy queue goes behind the others.
constexpr int jobsInARow = 64;

/// Somebody whose `sync` waits for its turn.
struct SyncWaiter {
  std::mutex mutex;
  std::condition_variable changed;
  bool hasTurn = false;

  void grant() {
    // Notified under the lock: the waiter may be gone as soon as it is released.
    std::lock_guard lock(mutex);
    hasTurn = true;
    changed.notify_one();
  }
  void wait() {
    std::unique_lock lock(mutex);
    changed.wait(lock, [this] { return hasTurn; });
  }
};

WorkQueue::WorkQueue(std::shared_ptr<ThreadCore> core, std::string label, QueueKind kind)
    : core_(std::move(core)),
      label_(std::move(label)),
      ordinary_(kind == QueueKind::serial ? Access::exclusive : Access::shared) {}

void WorkQueue::postAfter(Duration delay, Job job) {
  if (delay <= Duration(0)) return post(std::move(job));
  postThreadTimer(*core_, shared_from_this(), delay, std::move(job));
}

bool WorkQueue::isCurrent() const {
  const Frame* frame = currentFrame();
  return frame != nullptr && frame->queue == this;
}

void WorkQueue::enqueue(Job job, Access access) {
  if (core_->stopping()) return;
  QueueEntry entry{std::move(job), access, nullptr};
  {
    std::lock_guard lock(mutex_);
    if (!turns_.tryEnter(access)) return turns_.enqueue(std::move(entry));
  }
  core_->pool.submit(shared_from_this(), std::move(entry));
}

void WorkQueue::runFrom(QueueEntry entry) {
  for (int done = 0;; ++done) {
    if (done == jobsInARow) return core_->pool.submit(shared_from_this(), std::move(entry));
    const Access access = entry.access;
    {
      RunningOn running(this);
      if (!core_->stopping()) entry.job();
      entry.job = nullptr;
    }
    if (!leave(access, &entry)) return;
  }
}

bool WorkQueue::leave(Access access, QueueEntry* next) {
  bool taken = false;
  std::vector<QueueEntry> others;
  {
    std::lock_guard lock(mutex_);
    turns_.leave(access);
    QueueEntry entry;
    while (turns_.startNext(entry)) {
      if (entry.waiter != nullptr) {
        entry.waiter->grant();
      } else if (next != nullptr && !taken) {
        *next = std::move(entry);
        taken = true;
      } else {
        others.push_back(std::move(entry));
      }
    }
  }
  for (auto& entry : others) core_->pool.submit(shared_from_this(), std::move(entry));
  return taken;
}

void WorkQueue::runSync(Job job, Access access) {
  refuseSyncOntoOwn(currentFrame(), *this);
  waitForTurn(access);
  {
    RunningOn running(this);
    job();
    job = nullptr;
  }
  leave(access, nullptr);
}

void WorkQueue::waitForTurn(Access access) {
  SyncWaiter waiter;
  {
    std::lock_guard lock(mutex_);
    if (turns_.tryEnter(access)) return;
    turns_.enqueue({nullptr, access, &waiter});
  }
  ThreadPool::Blocked blocked;
  if (!core_->onMainThread()) return waiter.wait();
  core_->beginMainWait(*this);
  waiter.wait();
  core_->endMainWait();
}

}  // namespace kestrin::dispatch
