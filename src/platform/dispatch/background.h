#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"

namespace kestrin {

/// A completion for any queue: gives its value to `then` on the main queue, if the owner of
/// `lifetime` still lives. Make it on the queue on which the owner is destroyed.
template <class T>
std::function<void(T)> onMain(Dispatch& dispatch, const Lifetime& lifetime,
                              std::function<void(const T&)> then) {
  const std::function<void(const T&)> told = lifetime.guard(std::move(then));
  return [main = dispatch.mainQueue(), told](T value) {
    main->post([told, value = std::move(value)] { told(value); });
  };
}

/// Runs `work` on `queue` and gives what it returns to `then` on the main queue, if the owner of
/// `lifetime` still lives. `work` must not touch the owner.
template <class Work, class Then>
void inBackground(Dispatch& dispatch, const QueueRef& queue, const Lifetime& lifetime, Work work,
                  Then then) {
  using Value = decltype(work());
  const std::function<void(Value&)> told = lifetime.guard(std::move(then));
  queue->post([main = dispatch.mainQueue(), work = std::move(work), told] {
    const auto value = std::make_shared<Value>(work());
    main->post([value, told] { told(*value); });
  });
}

}  // namespace kestrin
