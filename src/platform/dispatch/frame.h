#pragma once

#include <string>
#include <string_view>

#include "platform/dispatch/dispatch.h"

namespace kestrin::dispatch {

/// One queue that the running code holds: a job of it is on the stack. Frames are linked from the
/// innermost outwards, across threads too when a job runs for somebody who waits in `sync`.
struct Frame {
  const Queue* queue;
  const Frame* outer;
};

/// True when `queue` is held by the code that `frame` stands for.
inline bool holds(const Frame* frame, const Queue* queue) {
  for (; frame != nullptr; frame = frame->outer) {
    if (frame->queue == queue) return true;
  }
  return false;
}

/// "typingQueue", or "(no queue)" outside any job.
std::string nameOf(const Frame* frame);

/// Aborts with both names when the code of `frame` already holds `target`: it would wait for
/// itself.
void refuseSyncOntoOwn(const Frame* frame, const Queue& target);

/// Prints "kestrin: <text>" on standard error and aborts.
[[noreturn]] void misuse(std::string_view text);

/// "job of mainQueue waits for 'reply'".
std::string waitOnMainText(std::string_view verb, std::string_view what);

}  // namespace kestrin::dispatch
