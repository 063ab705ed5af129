#include "platform/dispatch/thread_pool.h"

#include <algorithm>

#include "platform/dispatch/alarm_thread.h"
#include "platform/dispatch/work_queue.h"

namespace kestrin::dispatch {
namespace {

constexpr size_t maxThreads = 64;
// Two workers would let one blocked call on a small machine hold half the pool.
constexpr size_t minThreads = 4;
constexpr std::chrono::seconds idleThreadLives(5);
// Longer than a scheduling hiccup, shorter than a person notices.
constexpr std::chrono::milliseconds noProgress(10);

thread_local ThreadPool* poolOfThisThread = nullptr;

}  // namespace

ThreadPool::ThreadPool(AlarmThread& alarms, std::function<void()> onEnded)
    : alarms_(alarms),
      onEnded_(std::move(onEnded)),
      processors_(std::max<size_t>(minThreads, std::thread::hardware_concurrency())) {}

ThreadPool::~ThreadPool() {
  beginStop();
  join();
}

void ThreadPool::join() {
  std::unique_lock lock(mutex_);
  hasWork_.wait(lock, [this] { return threads_.empty(); });
  joinEnded();
}

void ThreadPool::submit(std::shared_ptr<WorkQueue> queue, QueueEntry entry) {
  bool wake = false;
  {
    std::lock_guard lock(mutex_);
    items_.push_back({std::move(queue), std::move(entry)});
    wake = items_.size() <= idle_;
    if (!wake) grow();
  }
  if (wake) hasWork_.notify_one();
}

void ThreadPool::beginStop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  hasWork_.notify_all();
}

bool ThreadPool::allEnded() const {
  std::lock_guard lock(mutex_);
  return threads_.empty();
}

void ThreadPool::grow() {
  if (threads_.size() < maxThreads && threads_.size() - blocked_ < processors_) {
    addThread();
  } else {
    watch(taken_);
  }
}

void ThreadPool::addThread() {
  joinEnded();
  auto self = threads_.emplace(threads_.end());
  SignalsBlocked blocked;
  *self = std::thread([this, self] { work(self); });
}

void ThreadPool::joinEnded() {
  for (auto& thread : ended_) thread.join();
  ended_.clear();
}

void ThreadPool::watch(uint64_t taken) {
  if (watching_ || stopping_) return;
  watching_ = true;
  alarms_.schedule(std::chrono::steady_clock::now() + noProgress,
                   [this, taken] { checkProgress(taken); });
}

void ThreadPool::checkProgress(uint64_t takenThen) {
  std::lock_guard lock(mutex_);
  watching_ = false;
  if (items_.empty()) return;
  const bool grow = taken_ <= takenThen && idle_ == 0 && threads_.size() < maxThreads;
  if (grow) addThread();
  // What the new thread takes for a start is no progress of the others.
  watch(taken_ + (grow ? 1 : 0));
}

void ThreadPool::work(std::list<std::thread>::iterator self) {
  poolOfThisThread = this;
  std::unique_lock lock(mutex_);
  for (;;) {
    if (items_.empty() && !stopping_) {
      ++idle_;
      hasWork_.wait_for(lock, idleThreadLives, [this] { return !items_.empty() || stopping_; });
      --idle_;
    }
    if (items_.empty()) break;
    Item item = std::move(items_.front());
    items_.pop_front();
    ++taken_;
    lock.unlock();
    item.queue->runFrom(std::move(item.entry));
    item.queue.reset();
    lock.lock();
  }
  ended_.splice(ended_.end(), threads_, self);
  if (!stopping_) return;
  hasWork_.notify_all();
  onEnded_();
}

ThreadPool::Blocked::Blocked() : pool_(poolOfThisThread) {
  if (pool_ == nullptr) return;
  std::lock_guard lock(pool_->mutex_);
  ++pool_->blocked_;
  if (pool_->items_.size() > pool_->idle_) pool_->grow();
}

ThreadPool::Blocked::~Blocked() {
  if (pool_ == nullptr) return;
  std::lock_guard lock(pool_->mutex_);
  --pool_->blocked_;
}

}  // namespace kestrin::dispatch
