#include "platform/linux/secret_service.h"

#include <fstream>
#include <gtest/gtest.h>

#include "platform/dispatch/threads.h"
#include "platform/linux/posix_processes.h"
#include "platform/private_bus.h"
#include "platform/simulated/simulated_system.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

const dbus::Target secrets{"org.freedesktop.secrets", "/org/freedesktop/secrets",
                           "org.freedesktop.Secret.Service"};

/// A user's session whose bus starts no service by itself: one that did would open the keyring of
/// whoever runs the tests.
class Session {
 public:
  Session() {
    std::ofstream(home.file("bus.conf"))
        << "<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
           "<policy context='default'><allow send_destination='*'/><allow own='*'/>"
           "<allow receive_sender='*'/></policy></busconfig>";
    bus = std::make_unique<PrivateBus>("--config-file=" + home.file("bus.conf"));
    client = bus->connect();
  }
  ~Session() { endKeyring(); }

  void startKeyring() {
    ProcessSpec spec{"gnome-keyring-daemon",
                     {"--foreground", "--unlock", "--components=secrets",
                      "--control-directory=" + home.file("control")}};
    spec.environment = {{"HOME", home.path()},
                        {"XDG_DATA_HOME", home.file("data")},
                        {"XDG_CACHE_HOME", home.file("cache")},
                        {"XDG_RUNTIME_DIR", home.path()},
                        {"DBUS_SESSION_BUS_ADDRESS", bus->address()}};
    spec.input = "the user's password";
    auto started = processes->start(
        spec, dispatch->makeQueue("keyring"), [](const std::string&, bool) {}, [](int) {});
    ASSERT_TRUE(started) << "gnome-keyring is needed: " << started.error().description;
    keyring = *started;
    keyring->closeInput();
    ASSERT_TRUE(test::eventually([this] {
      return client->property<bool>({secrets.service, secrets.path + "/aliases/default",
                                     "org.freedesktop.Secret.Collection"},
                                    "Locked", 5s) == false;
    })) << "the keyring did not open";
  }
  void endKeyring() {
    if (!keyring) return;
    keyring->kill();
    keyring.reset();
    EXPECT_TRUE(test::eventually([this] { return !client->processId(secrets.service, 5s); }));
  }
  void lock() {
    using Paths = std::vector<sdbus::ObjectPath>;
    EXPECT_TRUE((client->call<std::tuple<Paths, sdbus::ObjectPath>>(
        secrets, "Lock", 5s, Paths{sdbus::ObjectPath(secrets.path + "/aliases/default")})));
  }

  test::ScratchFolder home;
  std::unique_ptr<PrivateBus> bus;
  std::unique_ptr<dbus::Connection> client;

 private:
  std::unique_ptr<ThreadsDispatch> dispatch = ThreadsDispatch::make();
  std::unique_ptr<Processes> processes = makePosixProcesses();
  ChildProcessRef keyring;
};

void keepsEachItemByServiceAndAccount(SecretStore& store, SecretStore& otherProcess) {
  const Bytes bytes("a\0\xff\xfe\n", 5);
  EXPECT_EQ(store.load("s", "a"), std::nullopt);
  EXPECT_TRUE(store.remove("s", "a"));
  EXPECT_TRUE(store.save("s", "a", bytes));
  EXPECT_TRUE(store.save("s", "b", ""));
  EXPECT_TRUE(store.save("t", "a", "other"));
  EXPECT_TRUE(store.persistent());
  EXPECT_EQ(otherProcess.load("s", "a"), bytes);
  EXPECT_EQ(otherProcess.load("s", "b"), Bytes());
  EXPECT_TRUE(otherProcess.save("s", "a", "new"));
  EXPECT_EQ(store.load("s", "a"), "new");
  EXPECT_TRUE(store.remove("s", "a"));
  EXPECT_EQ(otherProcess.load("s", "a"), std::nullopt);
  EXPECT_EQ(otherProcess.load("t", "a"), "other");
}

TEST(SecretStore, KeepsEachItemByServiceAndAccount) {
  Session session;
  ASSERT_NO_FATAL_FAILURE(session.startKeyring());
  SecretService store(session.bus->address()), other(session.bus->address());
  keepsEachItemByServiceAndAccount(store, other);
  SimulatedSecretStore simulated;
  keepsEachItemByServiceAndAccount(simulated, simulated);
}

TEST(SecretStore, IsFoundAgainAfterARestartOfTheService) {
  Session session;
  ASSERT_NO_FATAL_FAILURE(session.startKeyring());
  SecretService store(session.bus->address());
  ASSERT_TRUE(store.save("s", "a", "kept"));
  session.endKeyring();
  EXPECT_FALSE(store.load("s", "a"));
  EXPECT_FALSE(store.persistent());
  ASSERT_NO_FATAL_FAILURE(session.startKeyring());
  EXPECT_EQ(store.load("s", "a"), "kept");
  EXPECT_TRUE(store.save("s", "a", "again"));
  EXPECT_TRUE(store.persistent());
}

TEST(SecretStore, WithoutAServiceOrBehindALockAValueServesTheRunOnly) {
  Session session;
  SecretService store(session.bus->address());
  const auto servesTheRunOnly = [&](const std::string& account) {
    EXPECT_TRUE(store.save("s", account, "for now"));
    EXPECT_FALSE(store.persistent());
    EXPECT_EQ(store.load("s", account), "for now");
    EXPECT_EQ(SecretService(session.bus->address()).load("s", account), std::nullopt);
    EXPECT_TRUE(store.remove("s", account));
    EXPECT_EQ(store.load("s", account), std::nullopt);
  };
  servesTheRunOnly("no service");
  ASSERT_NO_FATAL_FAILURE(session.startKeyring());
  ASSERT_TRUE(store.persistent());
  session.lock();
  servesTheRunOnly("locked");
  session.bus->stop();
  servesTheRunOnly("no bus");
}

}  // namespace
}  // namespace kestrin
