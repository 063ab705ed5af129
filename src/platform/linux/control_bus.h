#pragma once

#include <memory>
#include <string>

#include "platform/control_bus.h"
#include "platform/linux/dbus.h"

namespace kestrin {

/// The control interface on a D-Bus session bus. Handlers run on the bus connection's thread. A
/// call opens a connection of its own, so it also finds a bus that was started later.
class LinuxControlBus final : public ControlBus {
 public:
  /// `address` empty: the session's bus.
  explicit LinuxControlBus(std::string address = {});
  ~LinuxControlBus() override;

  Status serve(Handlers handlers) override;
  void stop() override;
  Status send(ControlCommand command) override;
  Result<std::string> status() override;
  Result<std::string> log() override;
  Status call(const std::string& what) override;

 private:
  using Bus = std::unique_ptr<dbus::Connection>;
  Result<Bus> connect() const;
  template <class R, class... Arguments>
  Result<R> ask(const std::string& method, const Arguments&... arguments);

  std::string address_;
  Bus serving_;
  SubscriptionHandle object_;
};

}  // namespace kestrin
