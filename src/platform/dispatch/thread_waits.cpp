#include "platform/dispatch/thread_core.h"

namespace kestrin::dispatch {
namespace {

class ThreadSemaphore final : public Semaphore {
 public:
  ThreadSemaphore(std::shared_ptr<ThreadCore> core, int value, std::string name)
      : core_(std::move(core)), name_(std::move(name)), count_(value) {}

  void signal() override {
    std::lock_guard lock(mutex_);
    ++count_;
    signalled_.notify_one();
  }

  bool wait(Duration timeout) override {
    if (timeout != Duration(0)) core_->checkMayWait("waits for", name_);
    {
      std::lock_guard lock(mutex_);
      if (count_ > 0) {
        --count_;
        return true;
      }
    }
    if (timeout == Duration(0)) return false;
    return waitLong(timeout);
  }

 private:
  bool waitLong(Duration timeout) {
    const auto deadline = deadlineAfter(timeout);
    ThreadCore::Interruptible interruptible(*core_, mutex_, signalled_);
    ThreadPool::Blocked blocked;
    std::unique_lock lock(mutex_);
    const auto over = [this] { return count_ > 0 || core_->stopping(); };
    if (timeout < Duration(0)) {
      signalled_.wait(lock, over);
    } else {
      signalled_.wait_until(lock, deadline, over);
    }
    if (count_ == 0) return false;
    --count_;
    return true;
  }

  const std::shared_ptr<ThreadCore> core_;
  const std::string name_;
  std::mutex mutex_;
  std::condition_variable signalled_;
  int count_;
};

/// A job that the alarm thread posts, once or again and again.
class TimedJob : public std::enable_shared_from_this<TimedJob> {
 public:
  TimedJob(ThreadCore& core, QueueRef queue, Duration interval, Job job)
      : core_(core), queue_(std::move(queue)), interval_(interval), job_(std::move(job)) {}

  void start(Duration delay) {
    std::lock_guard lock(mutex_);
    setAlarm(deadlineAfter(delay));
  }

  void cancel() {
    std::unique_lock lock(mutex_);
    cancelled_ = true;
    const AlarmThread::Key key = key_;
    lock.unlock();
    core_.alarms.forget(key);
  }

 private:
  void setAlarm(AlarmThread::Time time) {
    key_ = core_.alarms.schedule(time,
                                 [self = shared_from_this()]() mutable { ring(std::move(self)); });
  }

  /// Hands `self` on to the queue, so that what the job holds is released there, even when
  /// cancelled.
  static void ring(std::shared_ptr<TimedJob> self) {
    {
      std::lock_guard lock(self->mutex_);
      if (self->interval_ > Duration(0) && !self->cancelled_) self->setNextAlarm();
      // A queue that is held up owes one firing, not one for each interval.
      if (self->posted_) return;
      self->posted_ = true;
    }
    const QueueRef queue = self->queue_;
    queue->post([self = std::move(self)] { self->fire(); });
  }

  void setNextAlarm() {
    auto next = key_.time + interval_;
    const auto now = std::chrono::steady_clock::now();
    if (next <= now) next += (now - next) / interval_ * interval_ + interval_;
    setAlarm(next);
  }

  void fire() {
    {
      std::lock_guard lock(mutex_);
      posted_ = false;
      if (cancelled_) return;
    }
    job_();
  }

  ThreadCore& core_;
  const QueueRef queue_;
  const Duration interval_;
  const Job job_;
  std::mutex mutex_;
  AlarmThread::Key key_;
  bool cancelled_ = false;
  bool posted_ = false;
};

class ThreadTimer final : public Timer {
 public:
  ThreadTimer(std::shared_ptr<ThreadCore> core, std::shared_ptr<TimedJob> job)
      : core_(std::move(core)), job_(std::move(job)) {}
  ~ThreadTimer() override { job_->cancel(); }
  void cancel() override { job_->cancel(); }

 private:
  const std::shared_ptr<ThreadCore> core_;
  const std::shared_ptr<TimedJob> job_;
};

}  // namespace

std::shared_ptr<Semaphore> makeThreadSemaphore(std::shared_ptr<ThreadCore> core, int value,
                                               std::string name) {
  return std::make_shared<ThreadSemaphore>(std::move(core), value, std::move(name));
}

TimerHandle startThreadTimer(std::shared_ptr<ThreadCore> core, QueueRef queue, Duration delay,
                             Duration interval, Job job) {
  auto timed = std::make_shared<TimedJob>(*core, std::move(queue), interval, std::move(job));
  timed->start(delay);
  return std::make_unique<ThreadTimer>(std::move(core), std::move(timed));
}

void postThreadTimer(ThreadCore& core, QueueRef queue, Duration delay, Job job) {
  std::make_shared<TimedJob>(core, std::move(queue), Duration(0), std::move(job))->start(delay);
}

}  // namespace kestrin::dispatch
