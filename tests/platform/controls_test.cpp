#include <gtest/gtest.h>

#include "platform/dispatch/simulation.h"
#include "platform/linux/desktop_notifications.h"
#include "platform/linux/linux_controls.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/private_bus.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_processes.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using test::Variable;
using Options = std::map<std::string, sdbus::Variant>;

struct Controls : ::testing::Test {
  std::unique_ptr<Simulation> simulation = Simulation::make();
  SimulatedFiles files{simulation->clock()};
  SimulatedProcesses programs{*simulation};
  PrivateBus bus;
};

TEST_F(Controls, DarkModeIsWhatTheDesktopsSettingsSayAfterwards) {
  test::ScratchFolder folder;
  const auto processes = makePosixProcesses();
  LinuxControls controls{files, *processes, {bus.address(), bus.address()}};
  const Variable desktop("XDG_CURRENT_DESKTOP", "GNOME");
  const Variable place("XDG_CONFIG_HOME", folder.path());
  const auto scheme = [&] {
    return processes
        ->run({.program = "gsettings",
               .arguments = {"get", "org.gnome.desktop.interface", "color-scheme"}},
              10s)
        ->standardOutput;
  };
  {
    const Variable backend("GSETTINGS_BACKEND", "keyfile");
    ASSERT_TRUE(controls.setDarkMode(true));
    EXPECT_EQ(scheme(), "'prefer-dark'\n");
    ASSERT_TRUE(controls.setDarkMode(false));
    EXPECT_EQ(scheme(), "'default'\n");
  }
  const Variable backend("GSETTINGS_BACKEND", "memory");
  EXPECT_FALSE(controls.setDarkMode(true)) << "a setting that nobody keeps was called done";
}

TEST_F(Controls, EachDesktopIsAskedInItsOwnWay) {
  LinuxControls controls{files, programs, {bus.address(), bus.address()}};
  programs.on("gsettings", [](const ProcessSpec& spec) {
    return ScriptedProgram::printing(spec.arguments[0] == "get" ? "'prefer-dark'" : "");
  });
  programs.on("plasma-apply-colorscheme", ScriptedProgram{});
  const auto firstAsked = [&](const char* desktop) {
    const Variable current("XDG_CURRENT_DESKTOP", desktop);
    const auto before = programs.seen().size();
    simulation->globalQueue()->post([&] { EXPECT_TRUE(controls.setDarkMode(true)); });
    simulation->runFor(20s);
    return programs.seen().at(before).spec.program;
  };
  EXPECT_EQ(firstAsked("KDE"), "plasma-apply-colorscheme");
  EXPECT_EQ(firstAsked("ubuntu:GNOME"), "gsettings");
}

TEST_F(Controls, BrightnessAndSleepGoThroughTheSessionManager) {
  LinuxControls controls{files, programs, {bus.address(), bus.address()}};
  EXPECT_FALSE(controls.changeBrightness(6)) << "no screen";
  const auto device = [&](const std::string& name, const char* type, const char* now) {
    const auto folder = "/sys/class/backlight/" + name;
    files.put(folder + "/type", std::string(type) + "\n");
    files.put(folder + "/max_brightness", "200\n");
    files.put(folder + "/brightness", now);
  };
  device("acpi_video0", "firmware", "100\n");
  device("intel_backlight", "raw", "7\n");
  EXPECT_FALSE(controls.changeBrightness(6)) << "no session manager";

  std::string asked;
  auto manager = bus.connect();
  const auto session =
      manager->exportObject("/org/freedesktop/login1/session/auto", [&](sdbus::IObject& object) {
        object.registerMethod("SetBrightness")
            .onInterface("org.freedesktop.login1.Session")
            .implementedAs([&](const std::string& kind, const std::string& name, uint32_t value) {
              asked += kind + " " + name + " " + std::to_string(value) + "\n";
            });
      });
  const auto whole = manager->exportObject("/org/freedesktop/login1", [&](sdbus::IObject& object) {
    object.registerMethod("Suspend")
        .onInterface("org.freedesktop.login1.Manager")
        .implementedAs([&](bool interactive) { asked += interactive ? "ask" : "suspend\n"; });
  });
  ASSERT_TRUE(session && whole && manager->requestName("org.freedesktop.login1"));
  EXPECT_TRUE(controls.changeBrightness(6));
  EXPECT_TRUE(controls.changeBrightness(-99));
  EXPECT_TRUE(controls.changeBrightness(99));
  EXPECT_TRUE(controls.suspend());
  EXPECT_EQ(asked,
            "backlight acpi_video0 112\nbacklight acpi_video0 2\nbacklight acpi_video0 200\n"
            "suspend\n");
}

/// A desktop's portal that makes screenshots for a user who agrees or does not.
struct ScreenshotPortal {
  ScreenshotPortal(PrivateBus& bus, uint32_t answer, const std::string& uri) : bus_(bus.connect()) {
    const std::string path = "/org/freedesktop/portal/desktop";
    object_ = bus_->exportObject(path,
                                 [&, path](sdbus::IObject& object) {
                                   object.registerMethod("Screenshot")
                                       .onInterface("org.freedesktop.portal.Screenshot")
                                       .implementedAs([this, path, answer, uri](const std::string&,
                                                                                const Options&) {
                                         const auto request = path + "/request/1";
                                         EXPECT_TRUE(bus_->emit(
                                             request, "org.freedesktop.portal.Request", "Response",
                                             answer, Options{{"uri", sdbus::Variant(uri)}}));
                                         return sdbus::ObjectPath(request);
                                       });
                                 })
                  .value();
    EXPECT_TRUE(bus_->requestName("org.freedesktop.portal.Desktop"));
  }
  std::unique_ptr<dbus::Connection> bus_;
  SubscriptionHandle object_;
};

TEST_F(Controls, AScreenshotComesFromThePortalElseFromATool) {
  test::ScratchFolder folder;
  LinuxFiles realFiles;
  LinuxControls controls{realFiles, programs, {bus.address(), bus.address()}};
  const auto wanted = folder.file("Desktop/shot.png");
  const auto take = [&] {
    std::optional<Status> status;
    simulation->globalQueue()->post([&] { status = controls.screenshot(wanted); });
    simulation->runFor(60s);
    return status.value_or(fail("test", 1, "not finished"));
  };
  EXPECT_FALSE(take());
  programs.on("scrot", [&](const ProcessSpec& spec) {
    EXPECT_TRUE(realFiles.writeAtomic(spec.arguments.back(), "by scrot"));
    return ScriptedProgram{};
  });
  EXPECT_TRUE(take());
  EXPECT_EQ(realFiles.read(wanted).value_or(""), "by scrot");
  {
    ScreenshotPortal portal(bus, 0, "file://" + folder.path() + "/by%20portal.png");
    ASSERT_TRUE(realFiles.writeAtomic(folder.file("by portal.png"), "by portal"));
    EXPECT_TRUE(take());
    EXPECT_EQ(realFiles.read(wanted).value_or(""), "by portal");
    EXPECT_FALSE(realFiles.exists(folder.file("by portal.png")));
  }
  ScreenshotPortal portal(bus, 1, "");
  EXPECT_FALSE(take()) << "a user who declined is not overridden by a tool";
}

/// A notification server of a desktop.
struct NotificationServer {
  NotificationServer(PrivateBus& bus, std::vector<std::string> capabilities) : bus_(bus.connect()) {
    using Hints = std::map<std::string, sdbus::Variant>;
    object_ = bus_->exportObject(
                      path,
                      [&](sdbus::IObject& object) {
                        object.registerMethod("GetCapabilities")
                            .onInterface(name)
                            .implementedAs([capabilities] { return capabilities; });
                        object.registerMethod("Notify").onInterface(name).implementedAs(
                            [this](const std::string&, uint32_t, const std::string&,
                                   const std::string&, const std::string& body,
                                   const std::vector<std::string>& actions, const Hints&, int32_t) {
                              bodies.push_back(body);
                              offered.push_back(actions);
                              return static_cast<uint32_t>(bodies.size());
                            });
                      })
                  .value();
    EXPECT_TRUE(bus_->requestName(name));
  }
  /// As a user can: on what was offered.
  void click(uint32_t id, const std::string& action) {
    const auto& known = offered.at(id - 1);
    if (std::find(known.begin(), known.end(), action) == known.end()) return;
    EXPECT_TRUE(bus_->emit(path, name, "ActionInvoked", id, action));
  }
  static inline const std::string path = "/org/freedesktop/Notifications";
  static inline const std::string name = "org.freedesktop.Notifications";
  std::vector<std::string> bodies;
  std::vector<std::vector<std::string>> offered;  ///< key, label, key, label, ...
  std::unique_ptr<dbus::Connection> bus_;
  SubscriptionHandle object_;
};

TEST(Notifications, ShowABodyAsItStandsAndTellTheActionOnce) {
  for (const bool markup : {true, false}) {
    PrivateBus bus;
    DesktopNotifications notifications(bus.address());
    NotificationServer server(bus, markup ? std::vector<std::string>{"actions", "body-markup"}
                                          : std::vector<std::string>{});
    test::Log clicked;
    const auto first = notifications.show(
        {.title = "Run?", .body = "a && b > <i>c</i>", .actions = {{"run", "Run"}}},
        [&](const std::string& action) { clicked.add("1" + action + " "); });
    const auto second =
        notifications.show({.title = "Other", .actions = {{"default", "Open"}}},
                           [&](const std::string& action) { clicked.add("2" + action + " "); });
    ASSERT_TRUE(first && second);
    EXPECT_EQ(server.bodies[0],
              markup ? "a &amp;&amp; b &gt; &lt;i&gt;c&lt;/i&gt;" : "a && b > <i>c</i>");
    server.click(*first, "run");
    server.click(*first, "run");
    server.click(*second, "default");
    EXPECT_TRUE(test::eventually([&] { return clicked.has("2default "); }));
    EXPECT_EQ(clicked.text(), "1run 2default ");
  }
}

}  // namespace
}  // namespace kestrin
