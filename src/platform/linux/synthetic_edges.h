#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

namespace kestrin {

/// What our synthetic input is about to send, so that our key monitor can leave exactly that out:
/// other programs send keys the same way, and theirs count. Shared by the two; thread-safe.
class SyntheticEdges {
 public:
  void announce(uint8_t keycode, bool down) {
    const std::lock_guard lock(mutex_);
    announced_.push_back({keycode, down, std::chrono::steady_clock::now()});
  }

  /// True when this edge was announced; each announcement counts once.
  bool consume(uint8_t keycode, bool down) {
    const std::lock_guard lock(mutex_);
    // The server drops an edge that changes nothing, and nobody may be watching: such an
    // announcement must not swallow a later edge of somebody else.
    const auto oldest = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    std::erase_if(announced_, [&](const Edge& e) { return e.at < oldest; });
    for (auto e = announced_.begin(); e != announced_.end(); ++e) {
      if (e->keycode != keycode || e->down != down) continue;
      announced_.erase(e);
      return true;
    }
    return false;
  }

 private:
  struct Edge {
    uint8_t keycode;
    bool down;
    std::chrono::steady_clock::time_point at;
  };
  std::mutex mutex_;
  std::vector<Edge> announced_;
};

}  // namespace kestrin
