#pragma once

#include <array>
#include <cstddef>
#include <functional>

namespace kestrin::dispatch {

/// A stack of its own (1 MiB, behind a guard page) on which one function runs again and again, each
/// time until it returns or hands over. Used by one thread. A fiber that is destroyed in the middle
/// of its function never goes on: its stack is given up, not unwound, since the objects it speaks
/// of may be gone.
class Fiber {
 public:
  explicit Fiber(std::function<void()> body);
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// Called outside the fiber: starts the function, or goes on where it handed over. Returns when
  /// it has returned or handed over.
  void resume();
  /// Called on the fiber: goes back to whoever resumed it.
  void handOver();
  /// True when the function is not in the middle of something.
  bool idle() const { return idle_; }

 private:
  void loop();

  const std::function<void()> body_;
  void* const stack_;
  void* context_;           // of the fiber, while it is not running
  void* caller_ = nullptr;  // of whoever resumed it
  bool idle_ = true;
  bool ending_ = false;
  /// Exceptions in flight belong to the stack that they fly on.
  std::array<unsigned char, 16> exceptions_{};
  void* fakeStack_ = nullptr;
  const void* callerBottom_ = nullptr;
  size_t callerSize_ = 0;
  void* threadOfFiber_ = nullptr;
  void* threadOfCaller_ = nullptr;
};

}  // namespace kestrin::dispatch
