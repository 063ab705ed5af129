#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"

namespace kestrin {

/// Deterministic engine in virtual time. Exactly one job runs at a time, on a stack of its own, so
/// that product code which sleeps, waits or syncs runs unchanged; when nothing can run the clock
/// jumps to the next deadline. Among jobs that could run, the seed chooses: the same seed gives the
/// same order to the byte. Not thread-safe: everything happens on the calling thread. The test's
/// own code stands outside all jobs; it may wait and sync too, and the world goes on meanwhile. The
/// main queue aborts the program when it waits while time passes. Jobs in the middle of a wait when
/// the simulation is destroyed never go on.
///
/// Under the thread sanitizer every job counts as a thread of its own, so a race between two queues
/// is reported although one thread runs both (see sanitizers.h for what ports and tests note down).
class Simulation : public Dispatch {
 public:
  /// `seed` 0 takes KESTRIN_SEED from the environment, else 1. Wall time starts at
  /// 2026-03-02T09:00:00Z (a Monday).
  static std::unique_ptr<Simulation> make(uint64_t seed = 0);

  /// Runs forward through every deadline up to now + `duration`; ends at exactly that time.
  virtual void runFor(Duration duration) = 0;
  /// Moves the clock at once: everything due meanwhile fires late, all at the new time.
  virtual void jump(Duration duration) = 0;
  /// Runs what can run now without moving the clock.
  virtual void runReady() = 0;
  /// Runs until `done` holds or `limit` of virtual time has passed; says which. Also ends (false)
  /// when nothing is left that could ever run.
  virtual bool runUntil(const std::function<bool()>& done, Duration limit) = 0;

  virtual Duration elapsed() const = 0;
  virtual uint64_t seed() const = 0;
  /// Waiters that nothing can wake any more ("typingQueue waits for 'insert done'"), one line each;
  /// what a repeating timer does is taken to wake nobody. While other work is pending, only queues
  /// that wait for each other are certain. Empty when there are none. `runFor` with such waiters
  /// left is not an error: a peer that never answers is a legal world.
  virtual std::vector<std::string> stuck() const = 0;
  /// Pending jobs and timers, for a failure message.
  virtual std::string dump() const = 0;
  /// A deterministic random number in [0, bound), from the seed; for simulated ports.
  virtual uint64_t random(uint64_t bound) = 0;
};

}  // namespace kestrin
