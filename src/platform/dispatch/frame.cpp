#include "platform/dispatch/frame.h"

#include <cstdio>
#include <cstdlib>

namespace kestrin::dispatch {

std::string nameOf(const Frame* frame) {
  return frame == nullptr ? "(no queue)" : frame->queue->label();
}

void refuseSyncOntoOwn(const Frame* frame, const Queue& target) {
  if (!holds(frame, &target)) return;
  misuse("sync onto '" + target.label() + "' from a job of '" + nameOf(frame) +
         "', which would wait for itself");
}

void misuse(std::string_view text) {
  std::fprintf(stderr, "kestrin: %.*s\n", static_cast<int>(text.size()), text.data());
  std::fflush(stderr);
  std::abort();
}

std::string waitOnMainText(std::string_view verb, std::string_view what) {
  return "job of mainQueue " + std::string(verb) + " '" + std::string(what) +
         "': the main queue never waits";
}

}  // namespace kestrin::dispatch
