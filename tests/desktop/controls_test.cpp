#include <gtest/gtest.h>

#include "desktop/session.h"
#include "platform/linux/desktop_notifications.h"
#include "platform/linux/linux_controls.h"
#include "platform/linux/linux_files.h"
#include "platform/linux/posix_processes.h"
#include "platform/text/text.h"
#include "support/worlds.h"

namespace kestrin {
namespace {

TEST(DesktopNotifications, ARealServerShowsTheScriptAsItStandsAndTellsTheClick) {
  DesktopNotifications notifications;
  test::Log clicked;
  // The bus starts the server with this call, which may take longer than a notification may.
  test::eventually([] { return shell("dunstctl is-paused 2>/dev/null") == "false\n"; });
  const auto shown = notifications.show(
      {.title = "Run this script?", .body = "ls && <b>rm</b>", .actions = {{"run", "Run"}}},
      [&](const std::string& action) { clicked.add(action); });
  ASSERT_TRUE(shown) << shown.error().description;
  ASSERT_TRUE(test::eventually([] { return shell("dunstctl count displayed") == "1\n"; }));
  shell("dunstctl action 0");
  EXPECT_TRUE(test::eventually([&] { return clicked.text() == "run"; }));
  shell("dunstctl close-all");
  ASSERT_TRUE(test::eventually([] { return shell("dunstctl count displayed") == "0\n"; }));
  const auto history = shell("dunstctl history");
  // This server reads markup: what it draws is the script.
  EXPECT_NE(history.find("ls &amp;&amp; &lt;b&gt;rm&lt;/b&gt;"), history.npos) << history;
}

TEST(DesktopControls, AScreenshotIsThePictureOfTheScreen) {
  LinuxFiles files;
  const auto processes = makePosixProcesses();
  LinuxControls controls(files, *processes);
  const auto path = scratchFile("new folder/shot.png");
  const auto taken = controls.screenshot(path);
  ASSERT_TRUE(taken) << taken.error().description;
  EXPECT_EQ(shell("identify -format %wx%h '" + path + "'"),
            text::trim(shell("xdotool getdisplaygeometry | tr ' ' x")));
}

}  // namespace
}  // namespace kestrin
