#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace kestrin {

/// Where any number of threads leave items and one takes them all, in the order in which they were
/// left. `leave` never waits for anybody, not even for a thread that was interrupted in the middle
/// of its own: a real-time thread may call it. Thread-safe.
template <class Item>
class LogIntake {
 public:
  LogIntake() = default;
  LogIntake(const LogIntake&) = delete;
  LogIntake& operator=(const LogIntake&) = delete;
  ~LogIntake() { takeAll(); }

  void leave(Item item) {
    auto node =
        std::make_unique<Node>(Node{std::move(item), head_.load(std::memory_order_relaxed)});
    while (!head_.compare_exchange_weak(node->before, node.get(), std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
    // Whoever takes the list owns it now.
    [[maybe_unused]] const Node* listed = node.release();
  }

  bool empty() const { return head_.load(std::memory_order_acquire) == nullptr; }

  std::vector<Item> takeAll() {
    std::vector<Item> out;
    std::unique_ptr<Node> node(head_.exchange(nullptr, std::memory_order_acquire));
    while (node) {
      out.push_back(std::move(node->item));
      node.reset(node->before);
    }
    return {std::make_move_iterator(out.rbegin()), std::make_move_iterator(out.rend())};
  }

 private:
  struct Node {
    Item item;
    Node* before;  ///< left just before this one; owned
  };
  std::atomic<Node*> head_{nullptr};
};

}  // namespace kestrin
