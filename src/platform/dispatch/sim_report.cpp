#include <algorithm>
#include <cstdio>

#include "platform/dispatch/sim_core.h"
#include "platform/dispatch/sim_queue.h"
#include "platform/dispatch/sim_timer.h"

namespace kestrin::dispatch {
namespace {

std::string lineFor(const Wait& wait) {
  const std::string who = wait.frame == nullptr ? "the test" : nameOf(wait.frame);
  switch (wait.kind) {
    case Wait::For::turn:
      return who + " waits for its turn on '" + wait.what + "'";
    case Wait::For::sleep:
      return who + " sleeps: '" + wait.what + "'";
    case Wait::For::semaphore:
      break;
  }
  return who + " waits for '" + wait.what + "'";
}

std::string milliseconds(Duration time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f ms", static_cast<double>(time.count()) / 1e6);
  return text;
}

}  // namespace

std::vector<std::string> SimCore::stuck() const {
  // Whatever repeats cannot be known to wake nobody; it is taken not to.
  const bool mayGoOn =
      !ready_.empty() || std::any_of(alarms_.begin(), alarms_.end(), [](auto& each) {
        return each.second.wait != nullptr || !each.second.timer->repeats();
      });
  std::vector<const Wait*> dead;
  for (const Wait* wait : waits_) {
    if (wait->woken || !wait->unlimited) continue;
    // While the world goes on, only those who wait for each other are certain.
    if (!mayGoOn || wait->kind == Wait::For::turn) dead.push_back(wait);
  }
  const auto heldByDead = [&dead](const Wait* wait) {
    return std::any_of(dead.begin(), dead.end(),
                       [&](const Wait* other) { return holds(other->frame, wait->turnOf); });
  };
  for (bool changed = mayGoOn; changed;) {
    changed = std::erase_if(dead, [&](const Wait* wait) { return !heldByDead(wait); }) > 0;
  }
  std::vector<std::string> lines;
  for (const Wait* wait : dead) lines.push_back(lineFor(*wait));
  return lines;
}

std::string SimCore::dump() const {
  std::string out = "seed " + std::to_string(seed_) + ", at " + milliseconds(now_) + "\n";
  for (const Wait* wait : waits_) out += "  " + lineFor(*wait) + "\n";
  for (const auto& ready : ready_) {
    out += "  " +
           (ready.queue ? ready.queue->label() + " can run a job"
                        : nameOf(ready.woken->frame) + " can go on") +
           "\n";
  }
  for (const auto& [number, queue] : queues_) {
    if (queue->waitingCount() == 0) continue;
    out += "  " + queue->label() + " has " + std::to_string(queue->waitingCount()) +
           " more jobs to run\n";
  }
  for (const auto& [key, alarm] : alarms_) {
    if (alarm.timer == nullptr) continue;
    out += "  timer of " + alarm.timer->queue().label() + " at " + milliseconds(key.time) +
           (alarm.timer->repeats() ? ", repeats\n" : "\n");
  }
  return out;
}

}  // namespace kestrin::dispatch
