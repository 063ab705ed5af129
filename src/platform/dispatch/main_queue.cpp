#include "platform/dispatch/main_queue.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kestrin::dispatch {

/// A `sync` of another thread; lives on its stack.
struct MainQueue::SyncCall {
  const Frame* caller;
  std::mutex mutex;
  std::condition_variable changed;
  bool ended = false;
};

MainQueue::MainQueue() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (descriptor_ < 0) misuse(std::string("no descriptor for the main loop: ") + strerror(errno));
}

MainQueue::~MainQueue() { close(descriptor_); }

bool MainQueue::isCurrent() const {
  // The loop's own callbacks (a window's events) run on the main thread outside any job.
  const Frame* frame = currentFrame();
  return frame == nullptr ? core_->onMainThread() : frame->queue == this;
}

void MainQueue::postAfter(Duration delay, Job job) {
  if (delay <= Duration(0)) return post(std::move(job));
  postThreadTimer(*core_, shared_from_this(), delay, std::move(job));
}

void MainQueue::enqueue(Job job, SyncCall* call) {
  if (call == nullptr && core_->stopping()) return;
  std::lock_guard lock(mutex_);
  entries_.push_back({std::move(job), call});
  signalIfWork();
}

void MainQueue::signalIfWork() {
  if (signalled_ || entries_.empty()) return;
  signalled_ = true;
  wake();
}

void MainQueue::wake() { eventfd_write(descriptor_, 1); }

void MainQueue::sync(Job job) {
  const Frame* frame = currentFrame();
  refuseSyncOntoOwn(frame, *this);
  if (core_->onMainThread()) {
    if (frame != nullptr) {
      misuse("sync onto 'mainQueue' from a job of '" + nameOf(frame) + "' on the main thread");
    }
    drain();
    RunningOn running(this);
    return job();
  }
  SyncCall call{frame, {}, {}, false};
  core_->beginCallOfMain(frame);
  enqueue(std::move(job), &call);
  {
    ThreadPool::Blocked blocked;
    std::unique_lock lock(call.mutex);
    call.changed.wait(lock, [&] { return call.ended; });
  }
  core_->endCallOfMain(frame);
}

void MainQueue::drain() {
  size_t count = 0;
  {
    std::lock_guard lock(mutex_);
    eventfd_t ignored = 0;
    eventfd_read(descriptor_, &ignored);
    signalled_ = false;
    count = entries_.size();
  }
  for (; count > 0; --count) {
    Entry entry;
    {
      std::lock_guard lock(mutex_);
      if (entries_.empty()) return;  // a nested loop ran the rest
      entry = std::move(entries_.front());
      entries_.pop_front();
      // A job may run a loop of its own (a dialog), which must see the rest.
      signalIfWork();
    }
    runOne(std::move(entry));
  }
}

void MainQueue::runOne(Entry entry) {
  if (entry.call == nullptr) {
    RunningOn running(this);
    if (!core_->stopping()) entry.job();
    entry.job = nullptr;
    return;
  }
  {
    RunningOn running(this, entry.call->caller);
    entry.job();
    entry.job = nullptr;
  }
  std::lock_guard lock(entry.call->mutex);
  entry.call->ended = true;
  entry.call->changed.notify_one();
}

void MainQueue::waitForWake() {
  pollfd readable{descriptor_, POLLIN, 0};
  while (poll(&readable, 1, -1) < 0 && errno == EINTR) {
  }
}

int MainQueue::run() {
  while (!quitting_) {
    waitForWake();
    drain();
  }
  quitting_ = false;
  return code_;
}

void MainQueue::quit(int code) {
  code_ = code;
  quitting_ = true;
  wake();
}

}  // namespace kestrin::dispatch
