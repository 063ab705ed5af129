#include "platform/dispatch/alarm_thread.h"

#include <csignal>

namespace kestrin::dispatch {

struct SignalsBlocked::Mask {
  sigset_t signals;
};

SignalsBlocked::SignalsBlocked() : before_(std::make_unique<Mask>()) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_->signals);
}

SignalsBlocked::~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_->signals, nullptr); }

AlarmThread::Key AlarmThread::schedule(Time time, std::function<void()> ring) {
  std::lock_guard lock(mutex_);
  const Key key{time, ++numbers_};
  if (stopping_) return key;
  const auto position = pending_.emplace(key, std::move(ring)).first;
  if (!thread_.joinable()) {
    SignalsBlocked blocked;
    thread_ = std::thread([this] { run(); });
  } else if (position == pending_.begin()) {
    changed_.notify_one();
  }
  return key;
}

void AlarmThread::forget(const Key& key) {
  decltype(pending_)::node_type gone;  // destroyed without the lock: it may hold anything
  std::lock_guard lock(mutex_);
  gone = pending_.extract(key);
}

void AlarmThread::stop() {
  decltype(pending_) gone;
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    gone.swap(pending_);
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void AlarmThread::run() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    if (pending_.empty()) {
      changed_.wait(lock);
      continue;
    }
    const Time next = pending_.begin()->first.time;
    if (std::chrono::steady_clock::now() < next) {
      changed_.wait_until(lock, next);
      continue;
    }
    auto ring = std::move(pending_.extract(pending_.begin()).mapped());
    lock.unlock();
    ring();
    ring = nullptr;
    lock.lock();
  }
}

}  // namespace kestrin::dispatch
