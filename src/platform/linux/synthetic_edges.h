#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

namespace kestrin {

/// A key of one keyboard. Device 0 stands for the server's own device for keys that programs send.
struct DeviceKey {
  uint16_t device = 0;
  uint8_t keycode = 0;
  bool operator==(const DeviceKey&) const = default;
};

/// What our synthetic input is about to send, so that our key monitor can leave exactly that out:
/// other programs send keys the same way, and theirs count. Shared by the two; thread-safe.
class SyntheticEdges {
 public:
  void announce(DeviceKey key, bool down) {
    const std::lock_guard lock(mutex_);
    announced_.push_back({key, down, std::chrono::steady_clock::now()});
  }

  /// True when this edge was announced; each announcement counts once.
  bool consume(DeviceKey key, bool down) {
    const std::lock_guard lock(mutex_);
    // The server drops an edge that changes nothing, and nobody may be watching: such an
    // announcement must not swallow a later edge of somebody else.
    const auto oldest = std::chrono::steady_clock::now() - std::chrono::seconds(1);
    std::erase_if(announced_, [&](const Edge& e) { return e.at < oldest; });
    for (auto e = announced_.begin(); e != announced_.end(); ++e) {
      if (!(e->key == key) || e->down != down) continue;
      announced_.erase(e);
      return true;
    }
    return false;
  }

 private:
  struct Edge {
    DeviceKey key;
    bool down;
    std::chrono::steady_clock::time_point at;
  };
  std::mutex mutex_;
  std::vector<Edge> announced_;
};

}  // namespace kestrin
