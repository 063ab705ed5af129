#include "usermodel/preferences/preferences_applier.h"

#include "app/desk.h"
#include "usermodel/preferences/design.h"

namespace kestrin::test {
namespace {

TEST(PreferencesApplier, WhatIsStoredHoldsFromTheStart) {
  Desk desk;
  desk.settings.set("pref_appearance", 7);
  desk.settings.set("pref_alwaysOnTop", true);
  desk.settings.set("pref_windowOpacity", 60);
  desk.settings.set("pref_compactMode", true);
  desk.settings.set("pref_showSidebar", "no");  // of another type: as if absent
  desk.settings.set("pref_showDockIcon", false);
  desk.settings.set("pref_voiceVolume", 250);
  auto& application = desk.startReady();
  EXPECT_EQ(application.mainWindow().window(),
            (WindowState{Appearance::system, floatingWindowLevel, 0.6, true, true, false, 1}));
  EXPECT_EQ(application.core().player.preferredVolume(), 1.0F);
}

TEST(Location, IsFoundAtTheFirstStartAndNeverOverWhatTheUserTyped) {
  Desk desk;
  desk.startReady();
  desk.simulation->runFor(1s);
  EXPECT_EQ(desk.settings.string("nibo_user_location"), "Lyon, Rhône, France");
  Desk own;
  own.settings.set("nibo_user_city", "Ghent");
  own.startReady();
  own.simulation->runFor(1s);
  EXPECT_FALSE(own.settings.get("nibo_user_location"));
}

TEST(PreferencesApplier, AChangeFromAnywhereReachesTheRunningApplicationAsItsGroup) {
  Desk desk;
  auto& application = desk.startReady();
  std::vector<std::string> told;
  const auto heard = desk.notifications.observe(preferencesChanged, [&](const Json& info) {
    EXPECT_TRUE(desk.dispatch.mainQueue()->isCurrent());
    told.push_back(info.stringAt("key", "") + "=" + info.find("value")->dump());
  });
  const auto& window = application.mainWindow().window();
  EXPECT_EQ(window, WindowState{.redisplays = 1});
  // As another process does it: on a thread that is not the main one.
  const auto elsewhere = [&](const std::string& key, const std::optional<Json>& value) {
    desk.dispatch.globalQueue()->post(
        [&, key, value] { value ? desk.settings.set(key, *value) : desk.settings.remove(key); });
    desk.simulation->runFor(1s);
  };
  elsewhere("pref_appearance", 1);
  EXPECT_EQ(window, (WindowState{.appearance = Appearance::dark, .redisplays = 2}));
  elsewhere("pref_windowOpacity", 70);
  EXPECT_EQ(window.alpha, 0.7);
  elsewhere("pref_windowOpacity", std::nullopt);
  EXPECT_EQ(window.alpha, 0.7) << "never stored leaves it as it is";
  elsewhere("pref_showSidebar", false);
  EXPECT_FALSE(window.sidebarVisible);
  elsewhere("pref_voiceVolume", 30);
  EXPECT_EQ(application.core().player.preferredVolume(), 0.3F);
  elsewhere("nibo_user_name", "Ada");
  EXPECT_EQ(window.redisplays, 2) << "other groups redraw nothing";
  EXPECT_EQ(told, (std::vector<std::string>{"pref_appearance=1", "pref_windowOpacity=70",
                                            "pref_windowOpacity=null", "pref_showSidebar=false",
                                            "pref_voiceVolume=30"}));
}

TEST(PreferencesApplier, ChosenDevicesBecomeTheSystemsAndMissingOnesAreNamed) {
  Desk desk;
  desk.audio.addMicrophone("usb", "USB Microphone", {48000, 1});
  desk.audio.addOutput("hdmi", "HDMI");
  desk.settings.set("pref_inputDevice", "USB Microphone");
  desk.settings.set("pref_outputDevice", "HDMI");
  desk.startReady();
  const auto defaultOf = [](const Result<std::vector<AudioDevice>>& devices) {
    for (const auto& device : *devices) {
      if (device.isDefault) return device.id;
    }
    return std::string();
  };
  EXPECT_EQ(defaultOf(desk.audio.inputDevices()), "usb");
  EXPECT_EQ(defaultOf(desk.audio.outputDevices()), "hdmi");
  desk.audio.removeMicrophone("usb");
  desk.settings.set("pref_outputDevice", "USB Microphone");  // an input is no output
  desk.simulation->runFor(1s);
  EXPECT_TRUE(desk.printedLine("⚠️ Could not set default input device to 'USB Microphone'"));
  EXPECT_TRUE(desk.printedLine("⚠️ Could not set default output device to 'USB Microphone'"));
  EXPECT_EQ(defaultOf(desk.audio.outputDevices()), "hdmi");
}

TEST(PreferencesApplier, TheSoundFollowsWhenTheWindowIsGone) {
  Desk desk;
  auto& core = desk.startReady().core();
  PreferencesApplier applier{desk.dispatch, desk.settings, desk.notifications,
                             desk.audio,    core.player,   core.logger};
  auto window = std::make_shared<MainWindowController>(
      History::Services{desk.dispatch, desk.random, core.logger, core.deviceId, core.stats},
      ResearchServices{desk.dispatch, desk.random, core.logger, core.research, desk.pasteboard,
                       desk.workspace},
      "fn");
  applier.start(window);
  window.reset();
  desk.settings.set("pref_voiceVolume", 10);
  applier.apply("pref_alwaysOnTop");
  applier.apply();
  EXPECT_EQ(core.player.preferredVolume(), 0.1F);
}

TEST(Design, WordsInAnyCaseGiveTheirColourAndScale) {
  SimulatedSettings settings;
  const DesignColor green = DesignColors::primary(settings);
  EXPECT_EQ(DesignTypography::scale(settings), 1.0);
  EXPECT_TRUE(DesignTypography::preferSystemFont(settings));
  settings.set("pref_fontSize", "LARGE");
  EXPECT_EQ(DesignTypography::scale(settings), 1.08);
  settings.set("pref_fontSize", "small");
  EXPECT_EQ(DesignTypography::scale(settings), 0.92);
  settings.set("pref_accentColor", "PINK");
  EXPECT_EQ(DesignColors::primary(settings), (DesignColor{0.89, 0.44, 0.48}));
  settings.set("pref_accentColor", "Mauve");
  EXPECT_EQ(DesignColors::primary(settings), green);
}

}  // namespace
}  // namespace kestrin::test
