#include <gtest/gtest.h>

#include "desktop/text_worlds.h"
#include "platform/linux/atspi_browser.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

class DesktopBrowser : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!std::getenv("DISPLAY")) GTEST_SKIP() << "needs a display: scripts/desktop-session";
  }
};

TEST_P(DesktopBrowser, ShowsAndSelectsItsTabs) {
  BrowserWorld world(GetParam());
  world.openPages({"other.html", "fields.html"});
  auto browser = makeAtspiBrowser(DesktopBackends::shared().bus());
  const auto shows = [&](const std::string& page, const std::string& title) {
    return world.eventually([&] {
      const auto tab = browser->activeTab(world.pid());
      return tab && text::contains(tab->url, page) && tab->title == title;
    });
  };
  ASSERT_TRUE(world.eventually([&] { return browser->activeTab(world.pid()).has_value(); }));
  ASSERT_TRUE(world.eventually(
      [&] { return browser->selectTab(world.pid(), "fields.html", "fields") == true; }));
  EXPECT_TRUE(shows("fields.html", "fields"));
  EXPECT_TRUE(world.eventually([&] {
    const auto text = browser->pageText(world.pid(), 1000).value_or("");
    return text::contains(text,
                          "A page with fields\nSome bold words and a link.\nA second paragraph.");
  })) << browser->pageText(world.pid(), 1000).value_or("");
  EXPECT_EQ(text::characterCount(browser->pageText(world.pid(), 6).value_or("")), 6u);
  EXPECT_EQ(browser->selectTab(world.pid(), "other.html", "other page"), true);
  EXPECT_TRUE(shows("other.html", "other page"));
  EXPECT_EQ(browser->selectTab(world.pid(), "nowhere.html", "no such page"), false);
}

INSTANTIATE_TEST_SUITE_P(Families, DesktopBrowser, testing::Values("firefox", "chromium"),
                         [](const auto& info) { return std::string(info.param); });

}  // namespace
}  // namespace kestrin
