#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

namespace kestrin::dispatch {

/// Signals stay with the main thread: a thread that is started while this lives blocks all of them.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  struct Mask;
  std::unique_ptr<Mask> before_;
};

/// One thread that rings alarms: short callbacks at points in time, in order of time, equal times
/// in the order they were set. The thread starts with the first alarm.
class AlarmThread {
 public:
  using Time = std::chrono::steady_clock::time_point;
  /// Identifies a pending alarm. Unique.
  struct Key {
    Time time{};
    uint64_t number = 0;
    auto operator<=>(const Key&) const = default;
  };

  ~AlarmThread() { stop(); }

  /// `ring` runs on the alarm thread and must not block. After `stop` it never runs.
  Key schedule(Time time, std::function<void()> ring);
  /// Forgets a pending alarm; one that is ringing goes on.
  void forget(const Key& key);
  /// Ends the thread and forgets everything.
  void stop();

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<Key, std::function<void()>> pending_;
  uint64_t numbers_ = 0;
  bool stopping_ = false;
  std::thread thread_;
};

}  // namespace kestrin::dispatch
