#include "usermodel/preferences/preferences_view.h"

#include "app/desk.h"

namespace kestrin::test {
namespace {

using Action = PreferenceAction;
using Page = PreferencePage;

/// The running application with its settings window open.
struct Window : Desk {
  explicit Window(uint64_t seed = 1) : Desk(seed) {
    heard = notifications.observe(preferencesChanged, [this](const Json& info) {
      told.push_back(info.stringAt("key", "") + "=" + info.find("value")->dump());
    });
  }
  PreferencesView& open() {
    if (!application) startReady();
    onMain([this] { view = &application->pages().preferences(); });
    simulation->runFor(1s);
    return *view;
  }
  /// Does something to the window as its widgets would, and lets it settle.
  template <class F>
  void act(F f) {
    onMain([&] { f(*view); });
    simulation->runFor(1s);
  }
  PreferenceRow row(Page page, const std::string& id) {
    for (const auto& section : view->sections(page)) {
      for (const auto& each : section.rows) {
        if (each.id == id) return each;
      }
    }
    ADD_FAILURE() << "no row " << id;
    return {};
  }
  std::string asked() const {
    const auto* dialog = view->dialog();
    return dialog ? dialog->title + "|" + dialog->text + "|" + text::join(dialog->buttons, "/")
                  : "";
  }

  PreferencesView* view = nullptr;
  std::vector<std::string> told;
  SubscriptionHandle heard;
};

TEST(PreferencesView, EverySettingHasItsRowAndShowsItsDefaultBeforeItIsSet) {
  Window desk;
  desk.open();
  size_t rows = 0;
  for (const Page page : preferencePages) {
    EXPECT_EQ(desk.view->sections(page).size(), 3u) << pageTitle(page);
    for (const auto& section : desk.view->sections(page)) {
      EXPECT_FALSE(section.rows.empty()) << section.header;
      for (const auto& row : section.rows) {
        if (!row.preference) continue;
        ++rows;
        const auto& fallback = row.preference->fallback;
        if (row.preference->control == PreferenceControl::toggle) {
          EXPECT_EQ(row.on, fallback.asBool()) << row.id;
        } else if (row.preference->control == PreferenceControl::slider) {
          EXPECT_EQ(row.number, fallback.asNumber()) << row.id;
        } else if (row.preference->control == PreferenceControl::segmented) {
          EXPECT_EQ(int64_t(row.selected), fallback.asInt()) << row.id;
        } else if (!fallback.isNull()) {
          EXPECT_EQ(row.value, fallback.asString()) << row.id;
        }
      }
    }
  }
  size_t onPages = 0;
  for (const auto& each : preferences()) onPages += each.page != Page::none;
  EXPECT_EQ(rows, onPages) << "a setting names a section that its page lacks";
  EXPECT_EQ(desk.row(Page::general, "activate").value, desk.application->holdKeyName() + " (Hold)");
  EXPECT_EQ(desk.row(Page::voiceAndAudio, "pref_speechRate").value, "1.0x");
  EXPECT_EQ(desk.row(Page::advanced, "pref_contextWindow").value, "4000 tokens");
  EXPECT_TRUE(desk.told.empty()) << "opening the window changes nothing";
}

TEST(PreferencesView, EachControlStoresItsKindAtOnceAndTellsWhereItShould) {
  Window desk;
  desk.open();
  const auto& window = desk.application->mainWindow().window();
  desk.act([](auto& view) {
    view.setToggle("pref_showSidebar", false);
    view.setSlider("pref_voiceVolume", 140);
    view.choose("pref_fontSize", "Large");
    view.chooseSegment("pref_appearance", 2);
    view.chooseSegment("pref_appearance", 9);
    view.editText("pref_llmEndpoint", "http://llm.example");
    view.setToggle("pref_fontSize", true);  // another kind of control
  });
  EXPECT_EQ(desk.told, (std::vector<std::string>{"pref_showSidebar=false", "pref_voiceVolume=100.0",
                                                 "pref_fontSize=\"Large\"", "pref_appearance=2",
                                                 "pref_llmEndpoint=\"http://llm.example\""}));
  EXPECT_FALSE(window.sidebarVisible);
  EXPECT_EQ(window.appearance, Appearance::system);
  EXPECT_EQ(desk.application->core().player.preferredVolume(), 1.0F);
  EXPECT_EQ(desk.settings.string("pref_fontSize"), "Large");

  desk.told.clear();
  desk.act([](auto& view) {
    view.setToggle("pref_showDockIcon", false);
    view.setToggle("pref_alwaysOnTop", true);
    view.setSlider("pref_windowOpacity", 62.4);
  });
  EXPECT_TRUE(desk.told.empty()) << text::join(desk.told, " ");
  EXPECT_FALSE(window.taskbarEntry);
  EXPECT_EQ(window.level, floatingWindowLevel);
  EXPECT_DOUBLE_EQ(window.alpha, 0.624);
  EXPECT_EQ(desk.row(Page::appearance, "pref_windowOpacity").value, "62%");
  EXPECT_DOUBLE_EQ(desk.settings.number("pref_windowOpacity", 0), 62.4);
}

TEST(PreferencesView, LaunchAtLoginFlipsBackWhenTheDesktopRefusesButKeepsTheWish) {
  Window desk;
  desk.open();
  desk.act([](auto& view) { view.setToggle("pref_launchAtLogin", true); });
  EXPECT_TRUE(desk.loginItem.isEnabled());
  EXPECT_TRUE(desk.row(Page::general, "pref_launchAtLogin").on);
  desk.loginItem.refuse(true);
  desk.act([](auto& view) { view.setToggle("pref_launchAtLogin", false); });
  EXPECT_TRUE(desk.row(Page::general, "pref_launchAtLogin").on);
  EXPECT_FALSE(desk.settings.boolean("pref_launchAtLogin", true));
  EXPECT_TRUE(desk.printedLine("❌ Failed to set launch at login: The autostart folder"));
}

TEST(PreferencesView, TheGeminiKeyGoesToTheSecretStoreAlone) {
  Window desk;
  desk.startReady().core().geminiKey.save("old");
  desk.open();
  EXPECT_EQ(desk.row(Page::integrations, "pref_geminiApiKey").value, "old");
  desk.act([](auto& view) {
    for (const char* typed : {"A", "AI", "AIz"}) view.editText("pref_geminiApiKey", typed);
  });
  EXPECT_EQ(desk.application->core().geminiKey.apiKey(), "AIz");
  ASSERT_FALSE(desk.told.empty());
  EXPECT_EQ(desk.told.back(), "pref_geminiApiKey=\"AIz\"");
  EXPECT_FALSE(desk.settings.get("pref_geminiApiKey"));
  desk.act([](auto& view) { view.editText("pref_geminiApiKey", ""); });
  EXPECT_EQ(desk.application->core().geminiKey.apiKey(), "");
}

TEST(PreferencesView, TheMachinesDevicesAndVoicesAreOfferedAndAGoneOneShowsTheFirst) {
  Window desk;
  desk.audio.addOutput("hdmi", "HDMI");
  desk.settings.set("pref_outputDevice", "Gone");
  desk.speech.known.assign(12, {"com.example.voice.ALEX", "Alex", "en"});
  desk.speech.known[3] = {"com.example.voice.zoe", "Zoë", "fr"};
  desk.open();
  const auto output = desk.row(Page::voiceAndAudio, "pref_outputDevice");
  EXPECT_EQ(output.choices.front(), "Default");
  EXPECT_EQ(output.choices.back(), "HDMI");
  EXPECT_EQ(output.value, "Default");
  EXPECT_EQ(desk.settings.string("pref_outputDevice"), "Gone");
  EXPECT_EQ(desk.row(Page::voiceAndAudio, "pref_voiceStyle").choices.size(), 11u);
  desk.act([](auto& view) {
    view.choose("pref_voiceStyle", "Zoe");
    view.setSlider("pref_speechRate", 1.5);
    view.setSlider("pref_voiceVolume", 40);
    view.perform(Action::testVoice);
  });
  ASSERT_EQ(desk.speech.spoken().size(), 1u);
  EXPECT_EQ(desk.speech.spoken()[0].first, VoiceTest::sample);
  EXPECT_EQ(desk.speech.spoken()[0].second.voiceId, "com.example.voice.zoe");
  EXPECT_EQ(desk.speech.spoken()[0].second.wordsPerMinute, 270);
  ASSERT_EQ(desk.audio.played().size(), 1u);
  EXPECT_FLOAT_EQ(desk.audio.played()[0].volume, 0.4F);
}

TEST(PreferencesView, StorageIsMeasuredAndClearingAsksOnlyForTheHistory) {
  Window desk;
  const auto history = desk.files.dataFolder() + "/Kestrin/History";
  const auto cache = desk.files.cacheFolder() + "/Kestrin";
  ASSERT_TRUE(desk.files.writeAtomic(history + "/2026/a.json", std::string(1'500'000, 'x')));
  ASSERT_TRUE(desk.files.writeAtomic(cache + "/b", "123"));
  desk.startReady();
  desk.onMain([&] {
    desk.view = &desk.application->pages().preferences();
    EXPECT_EQ(desk.row(Page::privacy, "historyStorage").value, "Calculating...");
  });
  desk.simulation->runFor(1s);
  EXPECT_EQ(desk.row(Page::privacy, "historyStorage").value, "1.5 MB");
  EXPECT_EQ(desk.row(Page::privacy, "cacheStorage").value, "1 KB");

  desk.onMain([&] { desk.application->mainWindow().addHistoryEntry("chat", "in", "out", ""); });
  desk.act([](auto& view) { view.perform(Action::clearHistory); });
  EXPECT_EQ(desk.asked(),
            "Clear All History?|This will permanently delete all transcription history. This "
            "action cannot be undone.|Clear/Cancel");
  desk.act([](auto& view) { view.answer(1); });
  EXPECT_TRUE(desk.files.exists(history + "/2026/a.json"));
  desk.act([](auto& view) { view.perform(Action::clearHistory); });
  desk.act([](auto& view) { view.answer(0); });
  EXPECT_EQ(desk.asked(), "History Cleared|All transcription history has been deleted.|OK");
  EXPECT_TRUE(desk.files.list(history)->empty());
  EXPECT_TRUE(desk.application->mainWindow().historyEntries().empty());
  EXPECT_EQ(desk.row(Page::privacy, "historyStorage").value, "0 KB");
  desk.act([](auto& view) { view.answer(0); });
  desk.act([](auto& view) { view.perform(Action::clearCache); });
  EXPECT_EQ(desk.asked(), "Cache Cleared|Application cache has been cleared.|OK");
  EXPECT_FALSE(desk.files.exists(cache + "/b"));
}

TEST(PreferencesView, StatesOfTheMachineAndTheAccountAreReadWhenThePageOpens) {
  Window desk;
  desk.http.on(
      "GET", "127.0.0.1:8780/user/profile/device_*",
      ScriptedReply::json(Json::object({{"user", Json::object({{"email", "ada@example.org"}})}})));
  desk.open();
  EXPECT_EQ(desk.row(Page::integrations, "google").value, "Connected as ada@example.org");
  EXPECT_EQ(desk.row(Page::privacy, "microphone").value, "Granted ✓");
  EXPECT_EQ(desk.row(Page::privacy, "accessibility").value, "Granted ✓");
  desk.http.on("GET", "127.0.0.1:8780/user/profile/device_*",
               ScriptedReply::json(Json::object({{"user", Json::object({{"email", ""}})}})));
  desk.audio.setServerRunning(false);
  desk.act([](auto& view) { view.selectPage(Page::privacy); });
  EXPECT_EQ(desk.row(Page::integrations, "google").value, "Not connected");
  EXPECT_EQ(desk.row(Page::privacy, "microphone").value, "Unknown");
}

TEST(PreferencesView, UpdatesAreComparedByNumberAndOnlyWebAddressesAreOpened) {
  Window desk;
  desk.open();
  const auto check = [&](const ScriptedReply& reply) {
    desk.http.on("GET", "127.0.0.1:8780/app/version", reply);
    desk.act([](auto& view) { view.perform(Action::checkForUpdates); });
    const auto asked = desk.asked();
    desk.act([](auto& view) { view.answer(0); });
    return asked;
  };
  const auto version = [](const char* text, const char* url) {
    return ScriptedReply::json(Json::object({{"version", text}, {"downloadUrl", url}}));
  };
  EXPECT_EQ(check(version("1.0.0", "")),
            "You're Up to Date|You're running the latest version of Kestrin (1.0.0).|OK");
  for (const auto& useless :
       {ScriptedReply::refused(), ScriptedReply::body("<html>"), ScriptedReply::body("[]")}) {
    EXPECT_EQ(check(useless), "You're Up to Date|You're running version 1.0.0.|OK");
  }
  EXPECT_EQ(check(version("1.0.10", "https://example.org/get")),
            "Update Available|Version 1.0.10 is available. You are running version "
            "1.0.0.|Download/Later");
  check(version("2", "file:///etc/passwd"));
  EXPECT_EQ(desk.desktop.opened, (std::vector<std::string>{"https://example.org/get",
                                                           "http://127.0.0.1:8780/download"}));
  EXPECT_TRUE(isNewerVersion("1.10", "1.9"));
  EXPECT_FALSE(isNewerVersion("1.0.0", "1.0.0"));
  EXPECT_FALSE(isNewerVersion("0.9.99", "1.0"));
  EXPECT_TRUE(isNewerVersion("1.0.0.1", "1.0.0"));
}

TEST(PreferencesView, ExportedLogsLieOnTheDesktopWithoutTheSecret) {
  Window desk;
  desk.settings.set("pref_fontSize", "Large");
  desk.startReady().core().geminiKey.save("AIza-secret");
  const auto log = LogFileRedirector::path(desk.files, desk.dispatch.clock().wallNow());
  ASSERT_TRUE(desk.files.writeAtomic(log, "a line with AIza-secret\n"));
  desk.open();
  desk.act([](auto& view) { view.perform(Action::exportLogs); });
  const auto made = desk.files.list(desk.files.desktopFolder()).value();
  ASSERT_EQ(made.size(), 1u);
  const auto report = desk.files.read(made[0].path).value();
  EXPECT_NE(made[0].path.find("/kestrin_debug_logs_"), std::string::npos);
  EXPECT_NE(report.find("pref_fontSize"), std::string::npos);
  EXPECT_NE(report.find("a line with"), std::string::npos);
  EXPECT_EQ(report.find("AIza-secret"), std::string::npos);
  EXPECT_EQ(desk.desktop.opened, std::vector<std::string>{desk.files.desktopFolder()});
}

TEST(PreferencesView, SyncNowTakesItsTimeAndTheRowTellsHowLongAgoItWas) {
  Window desk;
  desk.open();
  const auto shown = [&] { return desk.row(Page::integrations, "lastSynced").value; };
  EXPECT_EQ(shown(), "Never");
  desk.act([](auto& view) { view.perform(Action::syncNow); });
  EXPECT_EQ(shown(), "Syncing...");
  desk.simulation->runFor(600ms);
  EXPECT_EQ(shown(), "Just now");
  desk.simulation->runFor(61s);
  EXPECT_EQ(shown(), "1 minute ago");
  desk.simulation->runFor(5h);
  EXPECT_EQ(shown(), "5 hours ago");
}

TEST(PreferencesView, ResetTakesThePreferencesAndNothingElse) {
  Window desk;
  desk.settings.set("pref_compactMode", true);
  desk.settings.set("pref_launchAtLogin", true);
  ASSERT_TRUE(desk.loginItem.setEnabled(true));
  desk.settings.set("nibo_user_name", "Ada");
  desk.settings.set("nibo_custom_prompts", Json::object({{"email", "mine"}}));
  desk.open();
  const auto id = desk.application->core().deviceId.deviceId();
  desk.act([](auto& view) {
    view.selectPage(Page::advanced);
    view.perform(Action::resetAll);
  });
  EXPECT_TRUE(desk.application->mainWindow().window().compactMode);
  desk.act([](auto& view) { view.answer(0); });
  EXPECT_EQ(desk.view->dialog()->text, "All preferences have been reset to their default values.");
  EXPECT_EQ(desk.view->page(), Page::general);
  for (const auto& key : desk.settings.keys()) EXPECT_NE(key.rfind("pref_", 0), 0u) << key;
  EXPECT_EQ(desk.settings.string("nibo_user_name"), "Ada");
  EXPECT_TRUE(desk.settings.get("nibo_custom_prompts"));
  EXPECT_EQ(desk.settings.string(DeviceIdManager::deviceIdKey), id);
  EXPECT_FALSE(desk.application->mainWindow().window().compactMode) << "it applies at once";
  EXPECT_FALSE(desk.loginItem.isEnabled());
}

}  // namespace
}  // namespace kestrin::test
