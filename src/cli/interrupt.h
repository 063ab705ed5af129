#pragma once

#include <functional>

#include "platform/dispatch/dispatch.h"

namespace kestrin::cli {

/// While it lives, Ctrl-C and a request to end become a call on the main queue instead of the
/// program's end; the second one ends it. One object in a process.
class Interrupt {
 public:
  Interrupt(Dispatch& dispatch, std::function<void()> onInterrupt);
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

 private:
  TimerHandle look_;
};

}  // namespace kestrin::cli
