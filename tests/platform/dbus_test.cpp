#include "platform/linux/dbus.h"

#include <future>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/private_bus.h"

namespace kestrin::dbus {
namespace {

using namespace std::chrono_literals;

const Target service{"org.test.Peer", "/peer", "org.test.Peer"};

/// A program on the bus; `Stall` answers only once the test lets it.
class Peer {
 public:
  explicit Peer(PrivateBus& bus) : connection(bus.connect()) {
    EXPECT_TRUE(connection->requestName(service.service));
    object =
        connection
            ->exportObject(
                service.path,
                [this](sdbus::IObject& o) {
                  o.registerMethod("Join")
                      .onInterface(service.interface)
                      .implementedAs([](const std::string& text, int32_t n) {
                        return text + std::to_string(n);
                      });
                  o.registerMethod("Refuse").onInterface(service.interface).implementedAs([] {
                    throw sdbus::Error("org.test.No", "not today");
                  });
                  o.registerMethod("Stall").onInterface(service.interface).implementedAs([this] {
                    stalled.set_value();
                    release.get_future().wait();
                  });
                  o.registerSignal("Changed")
                      .onInterface(service.interface)
                      .withParameters<int32_t>();
                })
            .value();
  }
  std::unique_ptr<Connection> connection;
  SubscriptionHandle object;
  std::promise<void> stalled, release;
};

TEST(DBus, CallsSortTheirFailures) {
  PrivateBus bus;
  auto client = bus.connect();
  Peer peer(bus);
  EXPECT_EQ(client->call<std::string>(service, "Join", 5s, "n", int32_t{7}).value(), "n7");
  EXPECT_EQ(client->call<int32_t>(service, "Join", 5s, "n", int32_t{7}).error().code, malformed);
  EXPECT_EQ((client->call<std::tuple<std::string, int32_t>>(service, "Join", 5s, "n", int32_t{7})
                 .error()
                 .code),
            malformed);
  auto refusal = client->call(service, "Refuse", 5s);
  EXPECT_EQ(refusal.error().code, refused);
  EXPECT_NE(refusal.error().description.find("not today"), std::string::npos);
  EXPECT_EQ(client->call({"org.test.Nobody", "/", "org.x"}, "M", 5s).error().code, unreachable);
  EXPECT_EQ(client->call({"not a name", "bad path", "x"}, "M", 5s).error().domain, "DBus");
  EXPECT_EQ(client->processId(service.service, 5s).value(), getpid());
  EXPECT_EQ(client->requestName(service.service).error().code, nameTaken);
}

TEST(DBus, AHungPeerHoldsUpOnlyItsCaller) {
  PrivateBus bus;
  // Each time from a connection's very beginning.
  for (int round = 0; round < 20; ++round) {
    auto client = bus.connect();
    Peer peer(bus);
    auto hung = std::async(std::launch::async, [&] { return client->call(service, "Stall", 20s); });
    peer.stalled.get_future().wait();
    EXPECT_TRUE(client->processId(service.service, 15s).has_value());
    EXPECT_EQ(hung.wait_for(0s), std::future_status::timeout);
    peer.release.set_value();
    EXPECT_TRUE(hung.get().has_value());
  }
  auto client = bus.connect();
  Peer peer(bus);
  EXPECT_EQ(client->call(service, "Stall", 100ms).error().code, timeout);
  peer.release.set_value();
}

TEST(DBus, SignalsArriveUntilUnsubscribed) {
  PrivateBus bus;
  auto client = bus.connect();
  Peer peer(bus);
  std::promise<int> seen;
  std::atomic<int> count = 0;
  auto subscription = client->subscribe(
      "type='signal',interface='org.test.Peer',member='Changed'", [&](sdbus::Message& message) {
        if (count++ == 0) seen.set_value(Connection::read<int32_t>(message).value());
      });
  ASSERT_TRUE(subscription);
  ASSERT_TRUE(peer.connection->emit(service.path, service.interface, "Changed", int32_t{42}));
  auto value = seen.get_future();
  ASSERT_EQ(value.wait_for(20s), std::future_status::ready);
  EXPECT_EQ(value.get(), 42);
  subscription->reset();
  ASSERT_TRUE(peer.connection->emit(service.path, service.interface, "Changed", int32_t{43}));
  EXPECT_EQ(client->call<std::string>(service, "Join", 5s, "after the signal", int32_t{0}).value(),
            "after the signal0");
  EXPECT_EQ(count, 1);
}

TEST(DBus, ALostBusFailsCallsAtOnce) {
  PrivateBus bus;
  auto client = bus.connect();
  Peer peer(bus);
  auto waiting =
      std::async(std::launch::async, [&] { return client->call(service, "Stall", 60s); });
  peer.stalled.get_future().wait();
  bus.stop();
  EXPECT_EQ(waiting.get().error().code, noBus);
  EXPECT_EQ(client->call(service, "Stall", 60s).error().code, noBus);
  EXPECT_EQ(Connection::open("unix:path=/nonexistent").error().code, noBus);
  peer.release.set_value();
}

}  // namespace
}  // namespace kestrin::dbus
