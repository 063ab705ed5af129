#include <filesystem>
#include <future>
#include <gio/gio.h>
#include <signal.h>
#include <thread>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

#include "desktop/x11_world.h"
#include "platform/linux/x11_keyboard.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

/// A test without a display must not look like a passed one.
class NeedsDisplay : public testing::Environment {
  void SetUp() override {
    // And not on the display of whoever runs it: the tests press keys.
    ASSERT_TRUE(std::getenv("DISPLAY") && std::getenv("DESKTOP_SESSION_DIR"))
        << "run these tests inside scripts/desktop-session";
  }
};
const auto* const needsDisplay = testing::AddGlobalTestEnvironment(new NeedsDisplay);

TEST_P(DesktopContract, HoldsOnX11) {
  X11World world;
  GetParam().second(world);
}
INSTANTIATE_TEST_SUITE_P(X11, DesktopContract, testing::ValuesIn(desktopRules),
                         [](const auto& rule) { return rule.param.first; });

std::unique_ptr<X11Connection> connect() {
  return std::move(X11Connection::open("", "Test").value());
}

/// A keyboard of hands: a device of its own beside the one that programs send keys through.
class PhysicalKeyboard {
 public:
  PhysicalKeyboard() {
    EXPECT_TRUE(hasX11Input2(*x_));
    for (const auto& device : x11Keyboards(*x_)) {
      if (!device.synthetic) device_ = static_cast<uint8_t>(device.id);
    }
    firstEvent_ = xcb_get_extension_data(x_->raw(), &xcb_input_id)->first_event;
    EXPECT_NE(device_, 0);
  }
  void key(uint8_t keycode, bool down) {
    const int kind = down ? XCB_INPUT_DEVICE_KEY_PRESS : XCB_INPUT_DEVICE_KEY_RELEASE;
    xcb_test_fake_input(x_->raw(), static_cast<uint8_t>(firstEvent_ + kind), keycode,
                        XCB_CURRENT_TIME, XCB_NONE, 0, 0, device_);
    x_->roundTrip();
  }
  X11Connection& connection() { return *x_; }

 private:
  std::unique_ptr<X11Connection> x_ = connect();
  uint8_t device_ = 0;
  uint8_t firstEvent_ = 0;
};

TEST(X11Keys, EdgesComeWhileAnotherProgramGrabsTheKeyboard) {
  using E = KeyEdge;
  X11World world;
  SeenEdges seen;
  ASSERT_TRUE(world.keys().start("right ctrl", seen.collector()));
  auto grabber = connect();
  auto grab = x11Reply(xcb_grab_keyboard_reply(
      grabber->raw(),
      xcb_grab_keyboard(grabber->raw(), 1, grabber->root(), XCB_CURRENT_TIME, XCB_GRAB_MODE_ASYNC,
                        XCB_GRAB_MODE_ASYNC),
      nullptr));
  ASSERT_TRUE(grab && grab->status == XCB_GRAB_STATUS_SUCCESS);
  world.userPressesHoldKey();
  // Longer than the server's repeat delay of 0.66 s.
  std::this_thread::sleep_for(900ms);
  world.userTapsAnotherKey();
  world.userReleasesHoldKey();
  const std::vector<E> expected = {E::holdDown, E::otherKey, E::holdUp};
  EXPECT_TRUE(world.eventually([&] { return seen.all().size() >= 3; }));
  EXPECT_EQ(seen.all(), expected);
}

TEST(X11Keys, AReleaseByHandDuringOurChordLeavesNothingStuck) {
  X11World world;
  PhysicalKeyboard hands;
  constexpr uint8_t shift = 50, rightControl = 105;
  SeenEdges seen;
  ASSERT_TRUE(world.keys().start("Right Ctrl", seen.collector()));
  hands.key(shift, true);
  ASSERT_TRUE(world.input().chord({"control"}, "v"));
  EXPECT_TRUE(world.isHeld("shift")) << "still under the finger";
  hands.key(shift, false);
  EXPECT_FALSE(world.isHeld("shift"));
  EXPECT_TRUE(x11KeysDown(hands.connection()).empty());
  for (int round = 0; round < 20; ++round) {
    hands.key(shift, true);
    hands.key(rightControl, true);
    auto chord =
        std::async(std::launch::async, [&] { return world.input().chord({"control"}, "v"); });
    // Before, within and after the chord, as it comes: never may a key stay down.
    for (int spin = 0; spin < round; ++spin) hands.connection().roundTrip();
    hands.key(shift, false);
    hands.key(rightControl, false);
    EXPECT_TRUE(chord.get());
    EXPECT_TRUE(world.eventually([&] {
      return !world.isHeld("shift") && !world.isHeld("control");
    })) << "round "
        << round;
  }
  EXPECT_TRUE(world.eventually([&] { return seen.all().size() == 40; })) << seen.all().size();
}

TEST(X11Keys, TheMonitorComesBackWithItsServer) {
  X11World world;
  auto server = std::make_unique<BackgroundProgram>("exec Xvfb -nolisten tcp -displayfd 4 4>" +
                                                    scratchFile("number"));
  ASSERT_TRUE(world.eventually([] { return readFile(scratchFile("number")).ends_with('\n'); }));
  const std::string number = text::trim(readFile(scratchFile("number"))), display = ":" + number;
  X11KeyMonitor monitor(std::make_shared<SyntheticEdges>(), display);
  SeenEdges seen;
  ASSERT_TRUE(monitor.start("Right Ctrl", seen.collector()));
  const auto key = [&](const char* verb) {
    shell("DISPLAY=" + display + " xdotool " + verb + " 105 2>/dev/null");
  };
  key("keydown");
  EXPECT_TRUE(world.eventually([&] { return seen.all().size() == 1; }));
  server->end();
  EXPECT_TRUE(world.eventually([&] { return seen.all().size() == 2; }))
      << "who lost the keyboard must not record for ever";
  std::filesystem::remove("/tmp/.X" + number + "-lock");
  server = std::make_unique<BackgroundProgram>("exec Xvfb -nolisten tcp " + display);
  ASSERT_TRUE(world.eventually([&] { return X11Connection::open(display, "").has_value(); }));
  EXPECT_TRUE(world.eventually([&] {
    key("keydown");
    key("keyup");
    return seen.all().size() >= 4;
  }));
}

TEST(X11, WithoutADisplayEveryCallSaysSo) {
  auto edges = std::make_shared<SyntheticEdges>();
  const std::string nowhere = ":9999";
  const auto status = X11KeyMonitor(edges, nowhere).start("Right Ctrl", [](KeyEdge) {});
  EXPECT_EQ(status.error().description, "The X display :9999 cannot be reached");
  EXPECT_EQ(X11SyntheticInput(edges, nowhere).chord({}, "a").error().code, 1);
  EXPECT_EQ(X11SyntheticInput(edges, nowhere).pointer().error().code, 1);
  X11Pasteboard board(nowhere);
  EXPECT_EQ(board.setString("a").error().code, 1);
  EXPECT_EQ(board.string(), std::nullopt);
  X11Workspace workspace(nowhere);
  EXPECT_EQ(workspace.activateWindow(1).error().code, 1);
  EXPECT_EQ(workspace.frontmostApplication(), std::nullopt);
  EXPECT_TRUE(workspace.windows().empty());
}

void askForClipboard(X11Connection& x, xcb_window_t window) {
  xcb_convert_selection(x.raw(), window, x.atom("CLIPBOARD"), x.atom("UTF8_STRING"), x.atom("TEST"),
                        XCB_CURRENT_TIME);
}

TEST(X11Clipboard, AReceiverThatVanishesHarmsNobody) {
  X11World world;
  ASSERT_TRUE(world.pasteboard().setString(std::string(500000, 'x')));
  {
    auto x = connect();
    const auto window = x->makeWindow(XCB_EVENT_MASK_PROPERTY_CHANGE);
    askForClipboard(*x, window);
    while (auto event = x->nextEvent(Deadline(20s)))
      if ((event->response_type & 0x7f) == XCB_SELECTION_NOTIFY) break;
    x->property(window, x->atom("TEST"), true);  // the first piece is on its way
  }
  EXPECT_EQ(world.pasteboard().fetches(), 0) << "half a text is no fetch";
  EXPECT_EQ(world.otherProgramFetches().size(), 500000u);
  EXPECT_EQ(shell("xclip -selection clipboard -out -target STRING").size(), 500000u);
}

/// Takes the clipboard over when its owner leaves.
std::string saveAsManager(std::promise<void>& ready) {
  auto x = connect();
  const auto window = x->makeWindow(XCB_EVENT_MASK_PROPERTY_CHANGE);
  xcb_set_selection_owner(x->raw(), window, x->atom("CLIPBOARD_MANAGER"), XCB_CURRENT_TIME);
  x->roundTrip();
  ready.set_value();
  xcb_selection_notify_event_t done{};
  while (auto event = x->nextEvent(Deadline(20s))) {
    const int kind = event->response_type & 0x7f;
    if (kind == XCB_SELECTION_REQUEST) {
      const auto& asked = reinterpret_cast<const xcb_selection_request_event_t&>(*event);
      EXPECT_EQ(x->atomName(asked.target), "SAVE_TARGETS");
      done = {
          XCB_SELECTION_NOTIFY, 0, 0, asked.time, asked.requestor, asked.selection, asked.target,
          asked.property};
      askForClipboard(*x, window);
    } else if (kind == XCB_SELECTION_NOTIFY) {
      const auto saved = x->property(window, x->atom("TEST"), true);
      char padded[32] = {};
      std::copy_n(reinterpret_cast<const char*>(&done), sizeof done, padded);
      xcb_send_event(x->raw(), 0, done.requestor, 0, padded);
      x->roundTrip();
      return saved ? saved->bytes : "";
    }
  }
  return "nobody asked";
}

TEST(X11Clipboard, TheTextIsHandedToAClipboardManagerAtTheEnd) {
  std::promise<void> ready;
  auto manager = std::async(std::launch::async, [&] { return saveAsManager(ready); });
  ready.get_future().wait();
  {
    X11Pasteboard board;
    ASSERT_TRUE(board.setString("last words"));
  }
  EXPECT_EQ(manager.get(), "last words");
}

TEST(X11Workspace, ProgramsAreStartedFoundAndClosed) {
  X11World world;
  auto& workspace = world.workspace();
  ASSERT_TRUE(workspace.launch("Mousepad"));
  int pid = 0;
  ASSERT_TRUE(world.eventually([&] {
    for (const auto& window : workspace.windows()) {
      const auto running = workspace.application(window.pid);
      if (running && running->desktopId == "org.xfce.mousepad") pid = running->pid;
    }
    return pid != 0;
  }));
  EXPECT_EQ(workspace.application(pid)->name, "Mousepad");
  ASSERT_TRUE(workspace.quitApplication("mousepad"));
  EXPECT_TRUE(world.eventually([&] { return world.windowOf(pid) == 0; }));
  EXPECT_EQ(workspace.application(999999999), std::nullopt);
}

TEST(X11Workspace, AddressesAndPathsGoToTheirHandlers) {
  X11World world;
  const std::string data = std::getenv("XDG_DATA_HOME"), config = std::getenv("XDG_CONFIG_HOME");
  const std::string log = scratchFile("opened");
  std::filesystem::remove(log);
  std::filesystem::create_directories(data + "/applications");
  writeFile(scratchFile("handler"), "#!/bin/sh\nreadlink /proc/$$/fd/2 >'" +
                                        scratchFile("handler output") + "'\necho \"$1\" >>" + log +
                                        "\n");
  std::filesystem::permissions(scratchFile("handler"), std::filesystem::perms::owner_all);
  writeFile(data + "/applications/test-handler.desktop",
            "[Desktop Entry]\nType=Application\nName=Test Handler\nExec=" + scratchFile("handler") +
                " %u\nMimeType=x-scheme-handler/https;text/plain;\n");
  writeFile(config + "/mimeapps.list",
            "[Default Applications]\nx-scheme-handler/https=test-handler.desktop\n"
            "text/plain=test-handler.desktop\n");
  writeFile(scratchFile("a note.txt"), "text");
  const std::string address = "https://example.test/a?b=$(touch+x)&c='d'";
  // The library hears of new entries a moment later; until then a browser would get the address.
  ASSERT_TRUE(world.eventually([&] {
    GAppInfo* handler = g_app_info_get_default_for_uri_scheme("https");
    const bool known = handler && std::string(g_app_info_get_id(handler)) == "test-handler.desktop";
    g_clear_object(&handler);
    return known;
  }));
  ASSERT_TRUE(world.workspace().open(address));
  ASSERT_TRUE(world.eventually([&] { return readFile(log) == address + "\n"; })) << readFile(log);
  // Ours may be captured, and gone before the handler is.
  EXPECT_EQ(readFile(scratchFile("handler output")), "/dev/null\n");
  ASSERT_TRUE(world.workspace().open(scratchFile("a note.txt")));
  EXPECT_TRUE(world.eventually([&] { return text::contains(readFile(log), "/a note.txt"); }))
      << readFile(log);
}

}  // namespace
}  // namespace kestrin
