#include "platform/linux/control_bus.h"

#include "platform/linux/application_id.h"

namespace kestrin {
namespace {

const char* const domain = "ControlBus";
constexpr std::chrono::seconds callLimit(2);

dbus::Target application() {
  return {desktopApplicationId, "/com/kestrin/Kestrin", "com.kestrin.Control"};
}

constexpr std::pair<ControlCommand, const char*> methods[] = {
    {ControlCommand::press, "Press"},   {ControlCommand::release, "Release"},
    {ControlCommand::toggle, "Toggle"}, {ControlCommand::cancel, "Cancel"},
    {ControlCommand::show, "Show"},     {ControlCommand::quit, "Quit"},
    {ControlCommand::retry, "Retry"},   {ControlCommand::elevate, "Elevate"},
    {ControlCommand::lower, "Lower"},
};

Error translated(const Error& error) {
  switch (error.code) {
    case dbus::noBus:
      return {domain, controlNoBus, "There is no session bus: " + error.description};
    case dbus::unreachable:
    case dbus::died:
      return {domain, controlNotRunning, "Kestrin is not running"};
    case dbus::timeout:
      return {domain, controlNoAnswer, "Kestrin does not answer"};
    default:
      return {domain, controlRefused, error.description};
  }
}

}  // namespace

LinuxControlBus::LinuxControlBus(std::string address) : address_(std::move(address)) {}
LinuxControlBus::~LinuxControlBus() { stop(); }

Result<LinuxControlBus::Bus> LinuxControlBus::connect() const {
  auto bus = dbus::Connection::session(address_);
  if (!bus) return fail(translated(bus.error()));
  return bus;
}

Status LinuxControlBus::serve(Handlers handlers) {
  stop();
  auto bus = connect();
  if (!bus) return fail(bus.error());
  const auto shared = std::make_shared<const Handlers>(std::move(handlers));
  // The object before the name: whoever finds the name finds it whole.
  auto object = (*bus)->exportObject(application().path, [&](sdbus::IObject& exported) {
    const std::string& interface = application().interface;
    for (const auto& [command, name] : methods) {
      exported.registerMethod(name).onInterface(interface).implementedAs(
          [shared, command = command] { shared->onCommand(command); });
    }
    exported.registerMethod("Status").onInterface(interface).implementedAs(
        [shared] { return shared->status(); });
    exported.registerMethod("Log").onInterface(interface).implementedAs(
        [shared] { return shared->log ? shared->log() : std::string("[]"); });
    exported.registerMethod("Call").onInterface(interface).implementedAs(
        [shared](const std::string& what) {
          if (shared->onCall) shared->onCall(what);
        });
  });
  if (!object) return fail(translated(object.error()));
  if (auto named = (*bus)->requestName(application().service); !named) {
    object->reset();
    if (named.error().code != dbus::nameTaken) return fail(translated(named.error()));
    return fail(domain, controlAlreadyRunning, "Kestrin is already running");
  }
  serving_ = std::move(*bus);
  object_ = std::move(*object);
  return {};
}

void LinuxControlBus::stop() {
  object_.reset();
  serving_.reset();
}

template <class R, class... Arguments>
Result<R> LinuxControlBus::ask(const std::string& method, const Arguments&... arguments) {
  auto bus = connect();
  if (!bus) return fail(bus.error());
  // A call to a name that nobody owns would start the application, only to ask whether it runs.
  if (auto owner = (*bus)->processId(application().service, callLimit); !owner) {
    return fail(translated(owner.error()));
  }
  auto answer = (*bus)->call<R>(application(), method, callLimit, arguments...);
  if (!answer) return fail(translated(answer.error()));
  return answer;
}

Status LinuxControlBus::send(ControlCommand command) {
  for (const auto& [known, name] : methods) {
    if (known == command) return ask<void>(name);
  }
  return fail(domain, controlRefused, "unknown command");
}

Result<std::string> LinuxControlBus::status() { return ask<std::string>("Status"); }

Result<std::string> LinuxControlBus::log() { return ask<std::string>("Log"); }

Status LinuxControlBus::call(const std::string& what) { return ask<void>("Call", what); }

}  // namespace kestrin
