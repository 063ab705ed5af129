#include "platform/linux/dbus.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <string_view>

namespace kestrin::dbus {
namespace {

Target busDaemon() {
  return {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
}

ErrorCode codeOf(std::string_view name, std::string_view message) {
  const std::string_view prefix = "org.freedesktop.DBus.Error.";
  if (name.substr(0, prefix.size()) != prefix) {
    return name.find("System.Error.ENOTCONN") != name.npos ||
                   name.find("System.Error.ECONNRESET") != name.npos
               ? noBus
               : refused;
  }
  name.remove_prefix(prefix.size());
  if (name == "NoReply") {
    // One name for three events; only the text tells the library's deadline from the peer's end.
    if (message.find("timed out") != message.npos) return timeout;
    return message.find("terminated") != message.npos ? noBus : died;
  }
  if (name == "Timeout" || name == "TimedOut") return timeout;
  if (name == "ServiceUnknown" || name == "NameHasNoOwner" || name == "UnknownObject")
    return unreachable;
  if (name == "NoServer" || name == "Disconnected") return noBus;
  if (name == "InvalidSignature" || name == "InconsistentMessage") return malformed;
  return refused;
}

}  // namespace

Error Connection::toError(const std::exception& thrown) {
  if (auto* error = dynamic_cast<const sdbus::Error*>(&thrown)) {
    return {"DBus", codeOf(error->getName(), error->getMessage()), error->what()};
  }
  return {"DBus", malformed, thrown.what()};
}

Connection::Connection(Bus bus) : bus_(std::move(bus)), uniqueName_(bus_->getUniqueName()) {
  // Not the library's own asynchronous loop: there a lost bus throws out of the thread and ends the
  // program.
  loop_ = std::thread([bus = bus_, lost = lost_] {
    guarded<void>([&] { bus->enterEventLoop(); });
    *lost = true;
  });
  guarded<void>([&] { awaitLoop(); });
}

/// Until its loop has begun the library makes each call with the whole connection locked, so that a
/// peer that hangs would hold up every other caller.
void Connection::awaitLoop() {
  struct Ping {
    std::unique_ptr<sdbus::IProxy> proxy;
    sdbus::PendingAsyncCall call;
  };
  auto served = std::make_shared<std::promise<void>>();
  auto proxy = sdbus::createProxy(*bus_, busDaemon().service, busDaemon().path);
  auto message = proxy->createMethodCall("org.freedesktop.DBus.Peer", "Ping");
  auto call = proxy->callMethod(
      message, [served](sdbus::MethodReply&, const sdbus::Error*) { served->set_value(); });
  // The loop may still be at the end of the callback when the wait is over.
  ping_ = std::make_shared<Ping>(Ping{std::move(proxy), std::move(call)});
  served->get_future().wait_for(std::chrono::seconds(2));
}

Connection::~Connection() {
  bus_->leaveEventLoop();
  loop_.join();
}

Result<std::unique_ptr<Connection>> Connection::openWith(
    const std::function<std::unique_ptr<sdbus::IConnection>()>& make) {
  auto opened = guarded<std::unique_ptr<Connection>>(
      [&] { return std::unique_ptr<Connection>(new Connection(Bus(make()))); });
  if (!opened) return fail("DBus", noBus, opened.error().description);
  return opened;
}

Result<std::unique_ptr<Connection>> Connection::session(const std::string& address) {
  if (!address.empty()) return open(address);
  return openWith([] { return sdbus::createSessionBusConnection(); });
}

Result<std::unique_ptr<Connection>> Connection::system(const std::string& address) {
  if (!address.empty()) return open(address);
  return openWith([] { return sdbus::createSystemBusConnection(); });
}

Result<std::unique_ptr<Connection>> Connection::open(const std::string& address) {
  return openWith([&] { return sdbus::createSessionBusConnectionWithAddress(address); });
}

Result<sdbus::MethodReply> Connection::invoke(const Target& target, const std::string& method,
                                              Duration deadline,
                                              const std::function<void(sdbus::Message&)>& write) {
  if (isLost()) return fail("DBus", noBus, "The bus connection is lost");
  return guarded<sdbus::MethodReply>([&] {
    auto proxy = sdbus::createProxy(*bus_, target.service, target.path);
    auto message = proxy->createMethodCall(target.interface, method);
    write(message);
    // Zero would mean the library's own 25 s.
    const auto limit = std::max<std::chrono::microseconds>(
        std::chrono::duration_cast<std::chrono::microseconds>(deadline),
        std::chrono::milliseconds(1));
    return proxy->callMethod(message, limit);
  });
}

Result<int> Connection::processId(const std::string& service, Duration deadline) {
  auto pid = call<uint32_t>(busDaemon(), "GetConnectionUnixProcessID", deadline, service);
  if (!pid) return fail(pid.error());
  return static_cast<int>(*pid);
}

Result<SubscriptionHandle> Connection::subscribe(const std::string& matchRule,
                                                 std::function<void(sdbus::Message&)> handler) {
  if (isLost()) return fail("DBus", noBus, "The bus connection is lost");
  auto safe = [handler = std::move(handler)](sdbus::Message& message) {
    guarded<void>([&] { handler(message); });
  };
  auto subscription = guarded<SubscriptionHandle>([&] {
    auto slot = std::make_shared<sdbus::Slot>(bus_->addMatch(matchRule, std::move(safe)));
    return onUnsubscribe([bus = bus_, slot]() mutable { guarded<void>([&] { slot->reset(); }); });
  });
  // Signals that arrived while the library waited for the bus to accept the rule sit in its queue,
  // and the loop sleeps on the socket: an answer of the bus wakes it.
  if (subscription) call<std::string>(busDaemon(), "GetId", std::chrono::seconds(1));
  return subscription;
}

Result<SubscriptionHandle> Connection::exportObject(
    const std::string& path, const std::function<void(sdbus::IObject&)>& declare) {
  if (isLost()) return fail("DBus", noBus, "The bus connection is lost");
  return guarded<SubscriptionHandle>([&] {
    std::shared_ptr<sdbus::IObject> object = sdbus::createObject(*bus_, path);
    declare(*object);
    object->finishRegistration();
    return onUnsubscribe([bus = bus_, object]() mutable {
      guarded<void>([&] { object->unregister(); });
      object.reset();
    });
  });
}

Status Connection::requestName(const std::string& name) {
  // The reply codes: 1 owner now, 2 queued, 3 exists, 4 already ours. Flag 4: do not queue.
  auto reply =
      call<uint32_t>(busDaemon(), "RequestName", std::chrono::seconds(2), name, uint32_t{4});
  if (!reply) return fail(reply.error());
  if (*reply == 1 || *reply == 4) return {};
  return fail("DBus", nameTaken, name + " is already owned");
}

}  // namespace kestrin::dbus
