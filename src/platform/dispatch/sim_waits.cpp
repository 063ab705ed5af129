#include <algorithm>

#include "platform/dispatch/sim_core.h"
#include "platform/dispatch/sim_timer.h"

namespace kestrin::dispatch {
namespace {

// Keeps sums of times far from overflow.
constexpr std::chrono::hours longestWait(24 * 365 * 20);

Duration timeAfter(const SimCore& core, Duration delay) {
  return core.now() + std::clamp<Duration>(delay, Duration(0), longestWait);
}

class SimSemaphore final : public Semaphore {
 public:
  SimSemaphore(std::shared_ptr<SimCore> core, int value, std::string name)
      : core_(std::move(core)), name_(std::move(name)), count_(value) {}

  void signal() override {
    order::release(this);
    order::Unobserved section;
    ++count_;
    if (waiters_.empty()) return;
    // Which of the waiters is woken is nobody's promise.
    const auto woken =
        waiters_.begin() + static_cast<std::ptrdiff_t>(core_->choices().below(waiters_.size()));
    Wait* wait = *woken;
    waiters_.erase(woken);
    core_->wake(*wait);
  }

  bool wait(Duration timeout) override {
    const bool signalled = take(timeout);
    if (signalled) order::acquire(this);
    return signalled;
  }

 private:
  bool take(Duration timeout) {
    order::Unobserved section;
    if (timeout != Duration(0)) core_->checkMayWait(name_);
    std::optional<Duration> deadline;
    if (timeout >= Duration(0)) deadline = timeAfter(*core_, timeout);
    // Between the signal and the waiter's going on another job may take what was meant for it.
    while (count_ == 0) {
      if (core_->ending() || (deadline && *deadline <= core_->now())) return false;
      Wait wait{Wait::For::semaphore, name_};
      waiters_.push_back(&wait);
      core_->block(wait, deadline);
      std::erase(waiters_, &wait);
    }
    --count_;
    return true;
  }

  const std::shared_ptr<SimCore> core_;
  const std::string name_;
  int count_;
  std::vector<Wait*> waiters_;
};

class SimTimerHandle final : public Timer {
 public:
  explicit SimTimerHandle(std::shared_ptr<SimTimer> timer) : timer_(std::move(timer)) {}
  ~SimTimerHandle() override {
    timer_->cancel();
    order::Unobserved section;
    timer_.reset();
  }
  void cancel() override { timer_->cancel(); }

 private:
  std::shared_ptr<SimTimer> timer_;
};

}  // namespace

void SimTimer::start(Duration delay) {
  order::release(this);
  order::Unobserved section;
  if (!core_->ending()) key_ = core_->setAlarm(timeAfter(*core_, delay), shared_from_this());
}

void SimTimer::cancel() {
  order::Unobserved section;
  cancelled_ = true;
  core_->forgetAlarm(key_);
}

void SimTimer::ring() {
  if (repeats()) {
    Duration next = key_.time + interval_;
    if (next <= core_->now()) {
      next += (core_->now() - next) / interval_ * interval_ + interval_;
    }
    key_ = core_->setAlarm(next, shared_from_this());
  }
  // A queue that is held up owes one firing, not one for each interval.
  if (posted_) return;
  posted_ = true;
  queue_->post([self = shared_from_this()] { self->fire(); });
}

void SimTimer::fire() {
  order::acquire(this);
  {
    order::Unobserved section;
    posted_ = false;
    if (cancelled_) return;
  }
  job_();
}

std::shared_ptr<Semaphore> makeSimSemaphore(std::shared_ptr<SimCore> core, int value,
                                            std::string name) {
  return std::make_shared<SimSemaphore>(std::move(core), value, std::move(name));
}

TimerHandle startSimTimer(const std::shared_ptr<SimCore>& core, QueueRef queue, Duration delay,
                          Duration interval, Job job) {
  auto timer = std::make_shared<SimTimer>(core, std::move(queue), interval, std::move(job));
  timer->start(delay);
  return std::make_unique<SimTimerHandle>(std::move(timer));
}

void postSimTimer(const std::shared_ptr<SimCore>& core, QueueRef queue, Duration delay, Job job) {
  std::make_shared<SimTimer>(core, std::move(queue), Duration(0), std::move(job))->start(delay);
}

}  // namespace kestrin::dispatch
