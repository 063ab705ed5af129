#pragma once

#include <array>
#include <cstddef>
#include <functional>

namespace kestrin::dispatch {

/// A stack of its own on which one function after another runs, each until it returns or hands
/// over. Used by one thread. A fiber that is destroyed in the middle of a function never goes on:
/// its stack is given up, not unwound, since the objects it speaks of may be gone.
class Fiber {
 public:
  Fiber();
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// Called outside any fiber: starts `body` (when idle) or goes on with the present one. Returns
  /// when it ended or handed over.
  void start(std::function<void()> body);
  void resume();
  /// Called on the fiber: goes back to whoever resumed it.
  void handOver();
  bool idle() const { return !body_; }

 private:
  static void entry(void* fiber);
  void enter();

  void* stack_ = nullptr;
  void* context_ = nullptr;  // of the fiber, while it is not running
  void* caller_ = nullptr;   // of whoever resumed it
  std::function<void()> body_;
  /// Exceptions in flight belong to the stack that they fly on.
  std::array<unsigned char, 16> exceptions_{};
  void* fakeStack_ = nullptr;
  const void* callerBottom_ = nullptr;
  size_t callerSize_ = 0;
  void* tsanFiber_ = nullptr;
  void* tsanCaller_ = nullptr;
};

}  // namespace kestrin::dispatch
