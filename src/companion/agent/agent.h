#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/json/json.h"

namespace kestrin::agent {

/// Tells the work for one request that nobody waits for it any more. Thread-safe.
class CancelToken {
 public:
  void cancel();
  bool isCancelled() const;
  /// Runs `job` once at the cancellation, on the cancelling thread (at once if it has happened).
  void onCancel(Job job);

 private:
  mutable std::mutex mutex_;
  bool cancelled_ = false;
  std::vector<Job> jobs_;
};
using CancelRef = std::shared_ptr<CancelToken>;

/// Turns a spoken request into text and actions. Thread-safe; several requests run side by side.
class Agent {
 public:
  /// One event of the answer: an object whose keys say what it is ("chunk", "mode" and
  /// "auto_detected", "action", ...).
  using Emit = std::function<void(const Json& event)>;

  virtual ~Agent() = default;
  /// `body` is the request's object. Returns at once; `emit` and then, exactly once, `done` are
  /// called from any thread, one call at a time, also before this returns. After a cancellation
  /// `done` still comes. A failure is an event {"error": text}, followed by `done`.
  virtual void process(const Json& body, Emit emit, std::function<void()> done,
                       CancelRef cancel) = 0;
};

}  // namespace kestrin::agent
