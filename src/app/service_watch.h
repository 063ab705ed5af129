#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/http.h"
#include "platform/lifetime.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// Whether the services that the pages read from can be reached, and the words that a page has for
/// one that cannot. It asks when it is told to. Main queue only.
class ServiceWatch {
 public:
  enum class Service { recogniser, agent, records };
  using Services = std::vector<Service>;
  static constexpr std::chrono::seconds probeTimeout{5};

  ServiceWatch(Dispatch& dispatch, Http& http, const Endpoints& endpoints);

  /// Asks all of them at once; without effect while they are being asked. One that was up is asked
  /// again before it counts as down: a busy machine may miss one answer.
  void check();
  bool isChecking() const { return asked_ > 0; }
  /// As last seen; one that was never asked counts as up.
  bool isDown(Service service) const;
  bool isAnyDown(const Services& needed) const;
  /// "Records (http://127.0.0.1:8780) do not answer: ..." for those needed that are down; empty
  /// when all are up.
  std::string text(const Services& needed) const;

  /// After each change of a service, and when asking begins and ends.
  std::function<void()> onChange;

 private:
  struct State {
    Service service;
    const char* name;
    std::string address, probe;
    std::string failure;  ///< why it is down; empty while it is up
  };
  void ask(State& state, bool mayMiss);
  void changed() const {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  std::shared_ptr<HttpSession> session_;
  std::vector<State> states_;
  size_t asked_ = 0;  ///< have not answered yet
  Lifetime lifetime_;
};

}  // namespace kestrin
