#pragma once

#include <functional>
#include <memory>

#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// How the main queue reaches its loop: `wake` is called from any thread when the main queue has
/// work; the loop answers by calling `drain` on its own thread. The Qt shell wires this to an
/// eventfd.
class MainLoop {
 public:
  virtual ~MainLoop() = default;
  /// Readable when the main queue has work; poll it and call `drain`.
  virtual int wakeDescriptor() const = 0;
  /// Runs the jobs that were posted before the call. Main thread only.
  virtual void drain() = 0;
  /// The terminal programs' own loop: drains until `quit`. Returns its code.
  virtual int run() = 0;
  /// From any thread.
  virtual void quit(int code) = 0;
};

/// The product's engine: real threads and real time. The thread that makes it is the main thread.
/// Destruction shuts it down.
class ThreadsDispatch : public Dispatch {
 public:
  static std::unique_ptr<ThreadsDispatch> make();
  virtual MainLoop& mainLoop() = 0;
  /// Stops timers, lets running jobs end, drops pending ones and joins every thread; posts do nothing
  /// afterwards. Call it before the objects are destroyed that jobs use. Main thread only.
  virtual void shutDown() = 0;
};

}  // namespace kestrin
