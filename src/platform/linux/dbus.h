#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <sdbus-c++/sdbus-c++.h>
#include <string>
#include <thread>
#include <tuple>
#include <type_traits>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/result.h"

/// The one door to D-Bus. Nothing here throws; errors have the domain "DBus" and an `ErrorCode`.
namespace kestrin::dbus {

enum ErrorCode {
  noBus = 1,        ///< no such bus, or its connection is lost
  unreachable = 2,  ///< nobody owns the name (any more), or the object is gone
  timeout =
      3,     ///< no answer within the deadline; a call that changes something may still take effect
  died = 4,  ///< the peer left the bus with the call unanswered
  refused = 5,    ///< the peer answered with an error
  malformed = 6,  ///< the answer has other types than expected
  nameTaken = 7,  ///< another process owns the requested name
};

/// Where a call goes.
struct Target {
  std::string service;
  std::string path;
  std::string interface;
};

template <class T>
inline constexpr bool isTuple = false;
template <class... T>
inline constexpr bool isTuple<std::tuple<T...>> = true;

/// A private connection with an event-loop thread of its own. Thread-safe: calls from several
/// threads run side by side, so a hung peer holds up nobody but its own caller. Signal and method
/// handlers run on the loop thread, one at a time; they must return quickly and never call,
/// subscribe or destroy the connection.
class Connection {
 public:
  /// The user's or the machine's bus; another in its place when `address` is not empty.
  static Result<std::unique_ptr<Connection>> session(const std::string& address = {});
  static Result<std::unique_ptr<Connection>> system(const std::string& address = {});
  /// A bus at an address ("unix:path=...").
  static Result<std::unique_ptr<Connection>> open(const std::string& address);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  const std::string& uniqueName() const { return uniqueName_; }
  /// True once the bus has gone away; every later call fails with `noBus`. Open a new connection
  /// then.
  bool isLost() const { return *lost_; }

  /// Calls a method and waits for the answer, at most `deadline`. `R` is the type of the only
  /// result, a `std::tuple` of several, or void: `call<std::string>(target, "GetAddress", 1s)`.
  template <class R = void, class... In>
  Result<R> call(const Target& target, const std::string& method, Duration deadline,
                 const In&... in) {
    auto reply =
        invoke(target, method, deadline, [&](sdbus::Message& m) { (void)(m << ... << in); });
    if (!reply) return fail(reply.error());
    if constexpr (std::is_void_v<R>) {
      return {};
    } else {
      return read<R>(*reply);
    }
  }

  /// Reads `target.interface`'s property.
  template <class T>
  Result<T> property(const Target& target, const std::string& name, Duration deadline) {
    Target properties{target.service, target.path, "org.freedesktop.DBus.Properties"};
    auto value = call<sdbus::Variant>(properties, "Get", deadline, target.interface, name);
    if (!value) return fail(value.error());
    return typed(guarded<T>([&] { return value->template get<T>(); }));
  }

  /// Process behind a bus name.
  Result<int> processId(const std::string& service, Duration deadline);

  /// Calls back for each message that fits the match rule ("type='signal',interface='...'"). After
  /// the handle's destruction no callback runs; do not destroy it while holding a lock the callback
  /// takes.
  Result<SubscriptionHandle> subscribe(const std::string& matchRule,
                                       std::function<void(sdbus::Message&)> handler);

  /// Publishes an object while the handle lives. `declare` registers methods, properties and
  /// signals: `object.registerMethod("Press").onInterface("org.x").implementedAs([] { ... });`. A
  /// method refuses by throwing `sdbus::Error`; nothing else may leave it.
  Result<SubscriptionHandle> exportObject(const std::string& path,
                                          const std::function<void(sdbus::IObject&)>& declare);

  /// Owns a well-known name until the connection ends; fails with `nameTaken`, never queues.
  Status requestName(const std::string& name);

  template <class... In>
  Status emit(const std::string& path, const std::string& interface, const std::string& signal,
              const In&... in) {
    return guarded<void>([&] {
      auto object = sdbus::createObject(*bus_, path);
      auto message = object->createSignal(interface, signal);
      (void)(static_cast<sdbus::Message&>(message) << ... << in);
      object->emitSignal(message);
    });
  }

  /// Reads values out of a message, for signal handlers.
  template <class R>
  static Result<R> read(sdbus::Message& message) {
    return typed(guarded<R>([&] {
      R value{};
      if constexpr (isTuple<R>) {
        std::apply([&](auto&... parts) { (void)(message >> ... >> parts); }, value);
      } else {
        message >> value;
      }
      if (!message) throw sdbus::Error("too short", "the answer has fewer values");
      return value;
    }));
  }

 private:
  using Bus = std::shared_ptr<sdbus::IConnection>;
  explicit Connection(Bus bus);
  void awaitLoop();

  static Result<std::unique_ptr<Connection>> openWith(
      const std::function<std::unique_ptr<sdbus::IConnection>()>& make);
  static Error toError(const std::exception& thrown);
  Result<sdbus::MethodReply> invoke(const Target& target, const std::string& method,
                                    Duration deadline,
                                    const std::function<void(sdbus::Message&)>& write);

  template <class T, class F>
  static Result<T> guarded(F f) {
    try {
      if constexpr (std::is_void_v<T>) {
        f();
        return {};
      } else {
        return f();
      }
    } catch (const std::exception& thrown) {
      return fail(toError(thrown));
    }
  }

  /// Whatever fails while a value is read is the fault of its type.
  template <class T>
  static Result<T> typed(Result<T> result) {
    if (!result) result.error().code = malformed;
    return result;
  }

  Bus bus_;
  std::string uniqueName_;
  std::shared_ptr<std::atomic<bool>> lost_ = std::make_shared<std::atomic<bool>>(false);
  std::thread loop_;
  std::shared_ptr<void> ping_;  ///< what `awaitLoop` sent; ends after the loop
};

}  // namespace kestrin::dbus
