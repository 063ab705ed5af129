#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin {

/// The torture hook that all simulated ports share. Each fallible port call names its site
/// ("http.data", "files.writeAtomic", "audio.capture") and asks whether it must fail now. A first
/// run with nothing armed counts the calls; then the same scenario runs once for each n in [1,
/// count()] with `arm(n)`, so that every call fails exactly once. Thread-safe.
class FaultPlan {
 public:
  /// Fails exactly the `n`-th call from now, counted from 1 over all sites; 0 fails none. Forgets
  /// what was counted before.
  void arm(int n) {
    const std::lock_guard lock(mutex_);
    armed_ = n;
    sites_.clear();
  }

  /// Counts a call; true when it is the one to fail.
  bool shouldFail(std::string_view site) {
    const std::lock_guard lock(mutex_);
    sites_.emplace_back(site);
    return static_cast<int>(sites_.size()) == armed_;
  }

  /// Calls counted since `arm` (or since the beginning).
  int count() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(sites_.size());
  }

  /// The site of each counted call, in order: `sites()[n - 1]` is what `arm(n)` fails in a rerun.
  std::vector<std::string> sites() const {
    const std::lock_guard lock(mutex_);
    return sites_;
  }

 private:
  mutable std::mutex mutex_;
  int armed_ = 0;
  std::vector<std::string> sites_;
};

/// `plan` is optional everywhere: without one nothing fails.
inline bool faultDue(FaultPlan* plan, std::string_view site) {
  return plan && plan->shouldFail(site);
}

}  // namespace kestrin
