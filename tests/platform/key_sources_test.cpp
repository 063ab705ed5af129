#include <fcntl.h>
#include <filesystem>
#include <linux/input.h>
#include <sys/stat.h>
#include <thread>

#include "platform/desktop_contract.h"
#include "platform/linux/evdev_key_monitor.h"
#include "platform/linux/portal_key_monitor.h"
#include "platform/private_bus.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using E = KeyEdge;

/// Waits for what must come; the limit only ends a broken run.
bool eventually(const std::function<bool()>& holds) {
  for (int i = 0; i < 4000 && !holds(); ++i) std::this_thread::sleep_for(5ms);
  return holds();
}

/// A keyboard that the test types on: the kernel's events come out of a pipe.
class PipeKeyboard {
 public:
  explicit PipeKeyboard(const std::string& path) {
    // A pipe without a writer reads as ended, so it gets its name only when it has one.
    const std::string unnamed = std::filesystem::path(path).parent_path().string() + "/new";
    mkfifo(unnamed.c_str(), 0600);
    pipe_ = Descriptor(open(unnamed.c_str(), O_RDWR | O_NONBLOCK));
    std::filesystem::rename(unnamed, path);
  }
  void key(int code, int value) {
    const input_event event{{}, EV_KEY, static_cast<uint16_t>(code), value};
    send(&event, sizeof event);
  }
  void send(const void* bytes, size_t count) {
    EXPECT_EQ(write(pipe_.get(), bytes, count), static_cast<ssize_t>(count));
  }

 private:
  Descriptor pipe_;
};

class EvdevKeys : public testing::Test {
 protected:
  void SetUp() override {
    char path[] = "/tmp/evdev-keys.XXXXXX";
    folder = mkdtemp(path);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  bool sees(const std::vector<E>& edges) {
    eventually([&] { return seen.all().size() >= edges.size(); });
    return seen.all() == edges;
  }
  std::string folder;
  SeenEdges seen;
};

TEST_F(EvdevKeys, EdgesOfSeveralKeyboardsBecomeOneKey) {
  EvdevKeyMonitor monitor({folder});
  EXPECT_NE(monitor.start("fn", seen.collector()).error().description.find("group \"input\""),
            std::string::npos);
  PipeKeyboard first(folder + "/event0");
  ASSERT_TRUE(monitor.start("fn", seen.collector()));
  for (const int value : {1, 2, 2, 0}) first.key(KEY_FN, value);  // 2: repeat
  ASSERT_TRUE(sees({E::holdDown, E::holdUp}));
  first.key(KEY_A, 1);
  auto second = std::make_unique<PipeKeyboard>(folder + "/event1");  // plugged in
  second->key(KEY_WAKEUP, 1);
  ASSERT_TRUE(sees({E::holdDown, E::holdUp, E::holdDown}));
  first.key(KEY_FN, 1);
  for (const int value : {1, 2, 0}) first.key(KEY_B, value);
  first.key(KEY_FN, 0);  // still down on the second
  first.key(BTN_LEFT, 1);
  first.key(KEY_C, 1);
  ASSERT_TRUE(sees({E::holdDown, E::holdUp, E::holdDown, E::otherKey, E::otherKey}));
  second.reset();  // unplugged with the key down
  EXPECT_TRUE(sees({E::holdDown, E::holdUp, E::holdDown, E::otherKey, E::otherKey, E::holdUp}));
}

TEST_F(EvdevKeys, AnEventInTwoPiecesIsOne) {
  PipeKeyboard keyboard(folder + "/event0");
  EvdevKeyMonitor monitor({folder + "/event0"});
  ASSERT_TRUE(monitor.start("right ctrl", seen.collector()));
  const input_event event{{}, EV_KEY, KEY_RIGHTCTRL, 1};
  keyboard.send(&event, 10);
  keyboard.send(reinterpret_cast<const char*>(&event) + 10, sizeof event - 10);
  EXPECT_TRUE(sees({E::holdDown}));
}

using Options = std::map<std::string, sdbus::Variant>;
using Shortcut = sdbus::Struct<std::string, Options>;

/// A desktop's portal, with a user who agrees or does not.
class FakePortal {
 public:
  FakePortal(PrivateBus& bus, uint32_t usersAnswer) : connection_(bus.connect()) {
    object_ =
        connection_
            ->exportObject(
                path,
                [&, usersAnswer](sdbus::IObject& o) {
                  o.registerProperty("version").onInterface(shortcuts).withGetter(
                      [] { return uint32_t{1}; });
                  o.registerMethod("CreateSession")
                      .onInterface(shortcuts)
                      .implementedAs([this](const Options& options) {
                        session = "/session/" + std::to_string(++sessions);
                        return respond(options, 0, {{"session_handle", sdbus::Variant(session)}});
                      });
                  o.registerMethod("BindShortcuts")
                      .onInterface(shortcuts)
                      .implementedAs([this, usersAnswer](const sdbus::ObjectPath&,
                                                         const std::vector<Shortcut>& wanted,
                                                         const std::string&,
                                                         const Options& options) {
                        auto bound = wanted.at(0);
                        proposal = bound.get<1>().at("preferred_trigger").get<std::string>();
                        bound.get<1>() = {{"trigger_description", sdbus::Variant("Press F9")}};
                        return respond(
                            options, usersAnswer,
                            {{"shortcuts", sdbus::Variant(std::vector<Shortcut>{bound})}});
                      });
                })
            .value();
    EXPECT_TRUE(connection_->requestName("org.freedesktop.portal.Desktop"));
  }
  void shortcut(const char* signal) { send(*connection_, signal, session); }
  static void send(dbus::Connection& from, const char* signal, const std::string& session) {
    EXPECT_TRUE(from.emit(path, shortcuts, signal, sdbus::ObjectPath(session),
                          std::string("dictate"), uint64_t{1}, Options{}));
  }
  void closeSession() {
    EXPECT_TRUE(connection_->emit(session, "org.freedesktop.portal.Session", "Closed", Options{}));
  }

  static inline const std::string path = "/org/freedesktop/portal/desktop";
  static inline const std::string shortcuts = "org.freedesktop.portal.GlobalShortcuts";
  std::string session, proposal;
  std::atomic<int> sessions = 0;

 private:
  sdbus::ObjectPath respond(const Options& options, uint32_t code, const Options& results) {
    const std::string handle = path + "/request/" + options.at("handle_token").get<std::string>();
    EXPECT_TRUE(
        connection_->emit(handle, "org.freedesktop.portal.Request", "Response", code, results));
    return sdbus::ObjectPath(handle);
  }

  std::unique_ptr<dbus::Connection> connection_;
  SubscriptionHandle object_;
};

TEST(PortalKeys, TheShortcutIsBoundAndHeld) {
  PrivateBus bus;
  FakePortal portal(bus, 0);
  PortalKeyMonitor monitor(bus.address());
  SeenEdges seen;
  ASSERT_TRUE(monitor.start("F13", seen.collector()));
  ASSERT_TRUE(eventually([&] { return monitor.binding().has_value(); }));
  EXPECT_EQ(monitor.trigger(), "Press F9");
  EXPECT_EQ(portal.proposal, "F13");
  auto stranger = bus.connect();
  FakePortal::send(*stranger, "Activated", portal.session);
  stranger->processId("org.freedesktop.portal.Desktop", 5s).value();
  portal.shortcut("Activated");
  portal.shortcut("Activated");
  portal.shortcut("Deactivated");
  portal.shortcut("Activated");
  EXPECT_TRUE(eventually([&] { return seen.all().size() == 3; }));
  portal.closeSession();
  EXPECT_TRUE(eventually([&] { return portal.sessions == 2 && monitor.binding().has_value(); }));
  portal.shortcut("Activated");
  const std::vector<E> expected = {E::holdDown, E::holdUp, E::holdDown, E::holdUp, E::holdDown};
  EXPECT_TRUE(eventually([&] { return seen.all().size() == expected.size(); }));
  EXPECT_EQ(seen.all(), expected);
}

TEST(PortalKeys, ARefusalAndAMissingPortalAreSaid) {
  PrivateBus bus;
  PortalKeyMonitor monitor(bus.address());
  SeenEdges seen;
  EXPECT_EQ(monitor.start("F13", seen.collector()).error().code, 6);
  FakePortal portal(bus, 1);
  ASSERT_TRUE(monitor.start("F13", seen.collector()));
  EXPECT_TRUE(eventually([&] {
    const auto binding = monitor.binding();
    return !binding && binding.error().description == "The shortcut for dictation was declined";
  }));
  monitor.stop();
  EXPECT_EQ(portal.sessions, 1) << "who said no is not asked again";
  EXPECT_TRUE(seen.all().empty());
}

}  // namespace
}  // namespace kestrin
