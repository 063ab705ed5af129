#include "platform/dispatch/threads.h"

#include <algorithm>

#include "platform/dispatch/main_queue.h"
#include "platform/dispatch/thread_core.h"
#include "platform/dispatch/work_queue.h"

namespace kestrin {
namespace {

using namespace dispatch;

class ThreadClock final : public Clock {
 public:
  explicit ThreadClock(std::shared_ptr<ThreadCore> core) : core_(std::move(core)) {}

  Date wallNow() const override { return std::chrono::system_clock::now(); }
  SteadyTime steadyNow() const override {
    return {std::chrono::steady_clock::now().time_since_epoch()};
  }
  void sleep(Duration duration, std::string_view why) override {
    if (duration <= Duration(0)) return;
    core_->checkMayWait("sleeps:", why);
    core_->sleep(duration);
  }

 private:
  const std::shared_ptr<ThreadCore> core_;
};

class Engine final : public ThreadsDispatch {
 public:
  Engine()
      : main_(std::make_shared<MainQueue>()),
        core_(std::make_shared<ThreadCore>([main = main_.get()] { main->wake(); })),
        global_(std::make_shared<WorkQueue>(core_, "globalQueue", QueueKind::concurrent)),
        clock_(core_) {
    main_->attach(core_);
    core_->mainQueue = main_.get();
  }

  ~Engine() override { shutDown(); }

  void shutDown() override {
    if (core_->stopping()) return;
    core_->beginStop();
    core_->alarms.stop();
    core_->pool.beginStop();
    // A running job may be waiting for the main queue, which nobody else serves any more.
    while (!core_->pool.allEnded()) {
      main_->waitForWake();
      main_->drain();
    }
    core_->pool.join();
    main_->drain();
  }

  Clock& clock() override { return clock_; }
  QueueRef mainQueue() override { return main_; }
  QueueRef globalQueue() override { return global_; }
  QueueRef makeQueue(std::string label, QueueKind kind) override {
    return std::make_shared<WorkQueue>(core_, std::move(label), kind);
  }
  TimerHandle after(const QueueRef& queue, Duration delay, Job job) override {
    return startThreadTimer(core_, queue, delay, Duration(0), std::move(job));
  }
  TimerHandle every(const QueueRef& queue, Duration interval, Job job) override {
    const Duration step = std::max(interval, Duration(1));
    return startThreadTimer(core_, queue, step, step, std::move(job));
  }
  std::shared_ptr<Semaphore> makeSemaphore(int value, std::string name) override {
    return makeThreadSemaphore(core_, value, std::move(name));
  }
  MainLoop& mainLoop() override { return *main_; }

 private:
  const std::shared_ptr<MainQueue> main_;
  const std::shared_ptr<ThreadCore> core_;
  const QueueRef global_;
  ThreadClock clock_;
};

}  // namespace

std::unique_ptr<ThreadsDispatch> ThreadsDispatch::make() { return std::make_unique<Engine>(); }

}  // namespace kestrin
