#pragma once

#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <string>

#include "platform/dispatch/sanitizers.h"
#include "platform/dispatch/simulation.h"

namespace kestrin {

/// What a test notes down from jobs of several queues. Not a race under the thread sanitizer.
class Trace {
 public:
  void operator+=(const std::string& text) {
    dispatch::order::Unobserved unobserved;
    text_ += text;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// Runs `scenario` in a fresh world for each of the seeds 1 to `count`, and names the seed of a
/// failure. With KESTRIN_SEED=n in the environment it runs that seed alone. Stops at the first seed
/// that fails.
inline void forEachSeed(int count, const std::function<void(Simulation&)>& scenario) {
  const char* chosen = std::getenv("KESTRIN_SEED");
  const uint64_t only = chosen != nullptr ? std::strtoull(chosen, nullptr, 10) : 0;
  const uint64_t first = only != 0 ? only : 1;
  const uint64_t last = only != 0 ? only : static_cast<uint64_t>(count);
  for (uint64_t seed = first; seed <= last && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("rerun with KESTRIN_SEED=" + std::to_string(seed));
    const auto world = Simulation::make(seed);
    scenario(*world);
  }
}

}  // namespace kestrin
