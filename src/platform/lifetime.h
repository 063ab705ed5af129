#pragma once

#include <memory>
#include <utility>

namespace kestrin {

/// Guards closures that outlive their owner: put a `Lifetime` last among an object's members and
/// wrap every callback in `guard`. Once the owner is gone the callback does nothing.
///
/// The owner must be destroyed on the queue on which its guarded closures run (or after that queue
/// has stopped): the guard tests that the owner lives, it does not keep it alive.
class Lifetime {
 public:
  Lifetime() : token_(std::make_shared<char>('\0')) {}
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;

  /// A callable that forwards to `f` while the owner lives; otherwise returns a default value.
  template <class F>
  auto guard(F f) const {
    return [weak = std::weak_ptr<char>(token_), f = std::move(f)](auto&&... args) mutable {
      using R = decltype(f(std::forward<decltype(args)>(args)...));
      if (auto alive = weak.lock()) return f(std::forward<decltype(args)>(args)...);
      return R();
    };
  }

  /// Ends the lifetime early: guarded closures do nothing from now on.
  void end() { token_.reset(); }

 private:
  std::shared_ptr<char> token_;
};

/// Undoes a registration (an observer, a tracked element) when destroyed.
class Subscription {
 public:
  virtual ~Subscription() = default;
};
using SubscriptionHandle = std::unique_ptr<Subscription>;

/// A subscription that runs `f` once, when it is destroyed.
template <class F>
SubscriptionHandle onUnsubscribe(F f) {
  struct Runner final : Subscription {
    explicit Runner(F g) : f(std::move(g)) {}
    ~Runner() override { f(); }
    F f;
  };
  return std::make_unique<Runner>(std::move(f));
}

}  // namespace kestrin
