#include "usermodel/preferences/modes_view.h"

#include <gtest/gtest.h>

#include "platform/simulated/simulated_world.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

struct Page : SimulatedWorld {
  static constexpr const char* address = "127.0.0.1:8765/process";

  const ModesView::Card& card(const std::string& id) {
    for (const auto* cards : {&view.voiceCards(), &view.liveAssistCards()}) {
      for (const auto& card : *cards) {
        if (card.id == id) return card;
      }
    }
    ADD_FAILURE() << "no card " << id;
    return view.voiceCards().front();
  }
  void save(const std::string& id, const std::string& text) {
    view.editPrompt(id, text);
    view.saveModePrompt(id);
  }
  /// The alert that a test of `mode` ends with.
  ModesView::Alert test(const std::string& mode, const ScriptedReply& reply) {
    http.on("POST", address, reply);
    view.testModePrompt("test_" + mode);
    EXPECT_FALSE(card(mode).canTest);
    EXPECT_EQ(card(mode).testTitle, "⏳...");
    view.testModePrompt("test_" + mode);
    view.rebuild();
    EXPECT_FALSE(card(mode).canTest) << "laid out again, it could be tested twice";
    simulation->runFor(60s);
    EXPECT_TRUE(card(mode).canTest);
    EXPECT_EQ(card(mode).testTitle, "▶ Test");
    return view.alert() ? *view.alert() : ModesView::Alert{};
  }

  Logger logger{dispatch, notifications};
  UserPreferences preferences{settings};
  DeviceIdManager deviceId{files, settings, random};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager geminiKey{keychain, settings};
  AgentClient agent{http, {"", "", "http://127.0.0.1:8765", ""}};
  ModesView view{{dispatch, settings, preferences, deviceId, geminiKey, agent, pasteboard, logger}};
};

TEST(ModesView, ShowsWhatIsStoredOverTheDefaults) {
  Page page;
  std::string order;
  for (const auto& card : page.view.voiceCards()) order += card.id + " ";
  EXPECT_EQ(order, "email dictation chat compose notes draw search command ");
  EXPECT_EQ(page.view.liveAssistCards().at(1).id, "live_assist_meeting");
  EXPECT_EQ(page.card("draw").name, "Image Prompt");
  EXPECT_EQ(page.card("draw").creativityLabel, "0.9");
  EXPECT_FALSE(page.card("live_assist_meeting").creativity);

  page.settings.set("nibo_mode_temperatures",
                    Json::object({{"email", 0.305}, {"chat", 0.4}, {"notes", 7.0}}));
  page.settings.set("nibo_custom_prompts",
                    Json::object({{"compose", "Mine"}, {"mystery", "Kept"}}));
  page.settings.set("nibo_live_assist_prompts", Json("not json"));
  page.view.rebuild();
  EXPECT_FALSE(page.card("email").isCustom) << "less than 0.01 off";
  EXPECT_TRUE(page.card("chat").isCustom);
  EXPECT_EQ(page.card("notes").creativity, 1.0);
  EXPECT_EQ(page.card("compose").prompt, "Mine");
  EXPECT_FALSE(page.card("live_assist_meeting").isCustom);
}

TEST(ModesView, ASaveStoresTheWholeMapAndSaysSoForAMomentAndAHalf) {
  Page page;
  page.settings.set("nibo_custom_prompts", Json::object({{"mystery", "Kept"}}));
  page.view.moveSlider("chat", 1.7);
  EXPECT_EQ(page.card("chat").creativityLabel, "1.0");
  EXPECT_FALSE(page.settings.get("nibo_mode_temperatures")) << "a slider alone stores nothing";
  page.save("chat", " \n\t ");
  EXPECT_EQ(page.card("chat").prompt, "");
  EXPECT_TRUE(page.card("chat").isCustom);
  EXPECT_EQ(page.preferences.modeTemperatures().at("chat"), 1.0);
  EXPECT_EQ(page.settings.get("nibo_custom_prompts")->members().size(), 10u);
  EXPECT_EQ(page.settings.get("nibo_custom_prompts")->stringAt("mystery"), "Kept");
  page.save("email", "  " + defaultPrompts().at("email") + "\n");
  EXPECT_FALSE(page.card("email").isCustom) << "the default, stored";
  EXPECT_EQ(page.view.toast(), "email saved!");

  page.simulation->runFor(1499ms);
  page.save("live_assist_sales_call", "Sell");
  EXPECT_EQ(page.view.toast(), "sales_call saved!");
  EXPECT_EQ(page.preferences.liveAssistPrompts().at("sales_call"), "Sell");
  EXPECT_TRUE(page.card("live_assist_sales_call").isCustom);
  page.simulation->runFor(1499ms);
  EXPECT_TRUE(page.view.toast());
  page.simulation->runFor(1ms);
  EXPECT_FALSE(page.view.toast());
  EXPECT_EQ(page.logger.getEntries("Mode prompts saved locally").size(), 3u);
}

TEST(ModesView, AResetAsksAndLeavesLiveAssistAlone) {
  Page page;
  page.save("chat", "Mine");
  page.save("live_assist_meeting", "Ours");
  page.view.resetAllPrompts();
  EXPECT_EQ(page.view.alert()->title, "Reset All Settings?");
  page.view.answerAlert(1);
  EXPECT_TRUE(page.card("chat").isCustom);
  page.view.resetAllPrompts();
  page.view.answerAlert(0);
  EXPECT_FALSE(page.view.alert());
  EXPECT_FALSE(page.card("chat").isCustom);
  EXPECT_FALSE(page.settings.get("nibo_custom_prompts"));
  EXPECT_FALSE(page.settings.get("nibo_mode_temperatures"));
  EXPECT_EQ(page.card("live_assist_meeting").prompt, "Ours");
}

TEST(ModesView, ATestShowsTheAgentsTextAndCopiesItOnRequest) {
  Page page;
  page.view.editPrompt("search", "not saved, not sent");
  const auto alert = page.test(
      "search", ScriptedReply::json(Json::object({{"processed_text", "courses"}})).after(100ms));
  EXPECT_EQ(alert.title, "Mode: search");
  EXPECT_EQ(alert.text, "Input: Find the best machine learning courses online\n\nOutput:\ncourses");
  const auto sent = page.http.requests(Page::address);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].request.timeout, 20s);
  const auto id = page.deviceId.deviceId();
  EXPECT_EQ(sent[0].request.body,
            R"({"transcript":"Find the best machine learning courses online","mode":"search",)"
            R"("user_id":")" +
                id + R"(","device_id":")" + id + R"(","app_context":"{}","use_local_llm":false})");
  page.view.answerAlert(1);
  page.simulation->runFor(1s);
  EXPECT_EQ(page.desktop.clipboard().text, "courses");
  EXPECT_EQ(page.test("draw", ScriptedReply::json(Json::object({{"transcript", "raw"}}))).text,
            "Input: Hello, this is a test of the draw mode.\n\nOutput:\nraw");
}

TEST(ModesView, AFailedTestSaysWhy) {
  const std::vector<std::pair<ScriptedReply, std::string>> cases{
      {ScriptedReply::body(""), "No response from server"},
      {ScriptedReply::body("{]"), "Invalid JSON response from agent"},
      {ScriptedReply::body("", 500), "The agent answered with status 500"},
      {ScriptedReply::json(Json::object({{"success", false}, {"error", "no model"}})), "no model"}};
  for (const auto& [reply, reason] : cases) {
    Page page;
    const auto alert = page.test("chat", reply);
    EXPECT_EQ(alert.title, "Test Failed");
    EXPECT_EQ(alert.text, reason);
    page.view.answerAlert(0);
    EXPECT_FALSE(page.view.alert());
  }
  Page page;
  EXPECT_NE(page.test("chat", ScriptedReply::never()).text, "") << "a dead agent ends the test too";
}

}  // namespace
}  // namespace kestrin
