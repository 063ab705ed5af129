#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/accessibility.h"
#include "platform/linux/dbus.h"

namespace kestrin::atspi {

/// What is left of the time that one port call may take, shared by all bus calls it makes.
class Budget {
 public:
  explicit Budget(Duration total) : end_(std::chrono::steady_clock::now() + total) {}
  Duration left() const {
    return std::max<Duration>(end_ - std::chrono::steady_clock::now(), Duration::zero());
  }
  bool spent() const { return left() == Duration::zero(); }

 private:
  std::chrono::steady_clock::time_point end_;
};

/// Longest time a port call may block.
inline constexpr Duration callLimit = std::chrono::seconds(2);

inline constexpr const char* accessibleInterface = "org.a11y.atspi.Accessible";
inline constexpr const char* textInterface = "org.a11y.atspi.Text";
inline constexpr const char* editableInterface = "org.a11y.atspi.EditableText";
inline constexpr const char* rootPath = "/org/a11y/atspi/accessible/root";

/// Bits of an accessible's state set, as numbered on the bus.
enum class State {
  active = 1,
  defunct = 6,
  editable = 7,
  enabled = 8,
  focused = 12,
  multiLine = 17,
  selected = 23,
  sensitive = 24,
  showing = 25,
  visible = 30,
};

struct StateSet {
  uint64_t bits = 0;
  bool has(State state) const { return (bits >> static_cast<int>(state)) & 1; }
};

/// The accessibility bus: finds it, stays connected (a lost bus is connected again at the next use)
/// and makes the calls. Thread-safe; every call ends within its budget. Errors: domain
/// "Accessibility", codes of `dbus::ErrorCode`.
class AtspiBus {
 public:
  /// Called on each new connection, before it is used, to subscribe to events.
  using OnConnect = std::function<void(dbus::Connection&)>;

  void onConnect(OnConnect hook) { onConnect_ = std::move(hook); }

  Result<std::shared_ptr<dbus::Connection>> connection();

  template <class R = void, class... In>
  Result<R> call(const AxElement& element, const char* interface, const char* method,
                 const Budget& budget, const In&... in) {
    auto bus = connection();
    if (!bus) return fail(bus.error());
    return mapped((*bus)->template call<R>({element.bus, element.path, interface}, method,
                                           budget.left(), in...));
  }

  template <class T>
  Result<T> property(const AxElement& element, const char* interface, const char* name,
                     const Budget& budget) {
    auto bus = connection();
    if (!bus) return fail(bus.error());
    return mapped(
        (*bus)->template property<T>({element.bus, element.path, interface}, name, budget.left()));
  }

  Result<StateSet> states(const AxElement& element, const Budget& budget);
  Result<std::vector<AxElement>> children(const AxElement& element, const Budget& budget);
  /// The number of the element's role on the bus.
  Result<uint32_t> roleNumber(const AxElement& element, const Budget& budget);
  /// Application roots of a process; mostly one.
  Result<std::vector<AxElement>> applications(int pid, const Budget& budget);
  /// Toolkit name of the program behind a bus name; remembered.
  Result<std::string> toolkit(const std::string& busName, const Budget& budget);
  /// Descendants of `root` with all of `states`, at most `limit` (0: all), by the program's own
  /// search.
  Result<std::vector<AxElement>> matches(const AxElement& root, std::vector<State> states,
                                         std::vector<uint32_t> roles, int limit,
                                         const Budget& budget);

  /// Asks programs for a kind of event for as long as the connection lives.
  static Status registerEvent(dbus::Connection& connection, const std::string& kind);
  /// Programs send an event of this kind ("object:text-changed") while the handle lives.
  Result<SubscriptionHandle> requestEvents(const std::string& kind);
  /// Signals of the accessibility bus; fails without one.
  Result<SubscriptionHandle> subscribe(const std::string& rule,
                                       std::function<void(sdbus::Message&)> handler);

 private:
  template <class T>
  static Result<T> mapped(Result<T> result) {
    if (!result) result.error().domain = "Accessibility";
    return result;
  }
  Result<std::unique_ptr<dbus::Connection>> open();
  Result<int> processOf(dbus::Connection& bus, const std::string& name, const Budget& budget);
  void forget(const std::string& busName);

  /// Kinds of events asked for on one connection: the bus keeps no count of its own.
  struct Requests {
    std::mutex mutex;
    std::map<std::string, int> counts;
  };

  std::mutex mutex_;  ///< held while connecting; never taken by a signal handler
  OnConnect onConnect_;
  std::shared_ptr<dbus::Connection> connection_;
  std::shared_ptr<Requests> requests_;
  SubscriptionHandle nameWatch_;

  std::mutex cacheMutex_;  ///< never held over a bus call
  std::map<std::string, int> processes_;
  std::map<std::string, std::string> toolkits_;
};

}  // namespace kestrin::atspi
