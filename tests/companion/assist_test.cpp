#include <gtest/gtest.h>

#include "companion/assist/documents.h"
#include "companion/assist/feedback.h"
#include "companion/assist/gist.h"
#include "companion/assist/model_feedback.h"
#include "companion/assist/phrases.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::assist {
namespace {

using namespace std::chrono_literals;

std::vector<Sentence> said(const std::string& transcript) {
  return sentencesOf(turnsOf(transcript));
}

/// "question own open: text", a line each.
std::string found(const std::string& transcript) {
  std::string out;
  for (const Finding& each : findingsIn(said(transcript))) {
    out += std::string(name(each.kind)) + (each.own ? " own" : "") + (each.open ? " open" : "") +
           ": " + each.text + "\n";
  }
  return out;
}

TEST(Phrases, TellWhatASentenceDoes) {
  const auto kind = [](const std::string& sentence) {
    const std::string all = found("[OTHER] " + sentence);
    return all.substr(0, all.find_first_of(" :"));
  };
  const std::vector<std::pair<const char*, const char*>> cases{
      {"That is too expensive for a team of our size.", "objection"},
      {"It is not too expensive at all.", ""},
      {"We have no concerns about the rollout.", ""},
      {"I'm worried about the migration.", "objection"},
      {"We already use another tool for that.", "objection"},
      {"We don't have the budget this quarter.", "objection"},
      {"I'll send you the contract by Friday.", "promise"},
      {"I will definitely check the numbers.", "promise"},
      {"Let me share the slides with you.", "promise"},
      {"I'll be honest with you.", ""},
      {"We will see how it goes.", ""},
      {"I will not send anything.", ""},
      {"I'll let you know tomorrow.", "promise"},
      {"Could you send me the price list?", "request"},
      {"Please don't forget to book the room.", "request"},
      {"We need to schedule a follow up.", "request"},
      {"Can you hear me?", ""},
      {"Let me know if that suits you.", "request"},
      {"When can we start with the pilot?", "question"},
      {"How are you doing today?", ""},
      {"Really?", ""},
      {"what does the annual plan cost", "question"},
      {"Let's go with the annual plan.", "decision"},
      {"We agreed on the second of May.", "decision"},
      {"The weather was lovely in the mountains.", ""},
  };
  for (const auto& [sentence, expected] : cases) EXPECT_EQ(kind(sentence), expected) << sentence;
}

TEST(Findings, WhatIsAnsweredKeptOrSettledIsClosed) {
  EXPECT_EQ(found("[OTHER] When can we start the pilot?\n[YOU] On the first of May."),
            "question: When can we start the pilot?\n");
  EXPECT_EQ(found("[OTHER] When can we start the pilot?\n[YOU] Good question, I'd have to ask."),
            "question open: When can we start the pilot?\n");
  EXPECT_EQ(found("[OTHER] When can we start the pilot?\n[YOU] Good question.\n[OTHER] Fine.\n"
                  "[YOU] The pilot starts in May."),
            "question: When can we start the pilot?\n");
  EXPECT_EQ(found("[OTHER] When can we start the pilot?\n[YOU] Which pilot do you mean?"),
            "question open: When can we start the pilot?\n"
            "question own open: Which pilot do you mean?\n");
  EXPECT_EQ(found("[You] I'll send the contract.\n[Other] Thanks.\n[You] I've sent the invoice."),
            "promise own open: I'll send the contract.\n")
      << "another thing was sent";
  EXPECT_EQ(found("[You] I'll send the contract.\n[You] I've just sent the contract."),
            "promise own: I'll send the contract.\n");
  EXPECT_EQ(found("[OTHER] That is too expensive.\n[YOU] Sounds good.\n[OTHER] It won't work."),
            "objection open: That is too expensive.\nobjection open: It won't work.\n");
  EXPECT_EQ(found("[OTHER] That is too expensive.\n[YOU] It has support.\n[OTHER] Fair enough."),
            "objection: That is too expensive.\n");
  EXPECT_EQ(found("[YOU] Could you send the logo?\n[YOU] could you send the logo"),
            "request own open: could you send the logo\n")
      << "said twice, it counts once";
}

TEST(Findings, TakeAnyTranscript) {
  for (const char* odd :
       {"", "\n\n", "[", "[]", "[YOU]", "[YOU] ", "] x", "\xff\xfe [\xc3", "...?!"})
    EXPECT_EQ(found(odd), "") << odd;
  EXPECT_EQ(found("hello there\n[OTHER] Hi.\nWhen can we start?"),
            "question open: When can we start?\n");
  std::string endless;
  while (endless.size() < 300'000) endless += "[YOU] We talked about the weather again.\n";
  EXPECT_LT(turnsOf(endless).size(), 4000u);
}

const char* const call =
    "[OTHER] Thanks for the demo. The pilot would cover forty people in Lyon.\n"
    "[YOU] Yes, the pilot runs for six weeks.\n"
    "[OTHER] The price of the pilot is too high for us. What does the support cost?\n"
    "[YOU] I'd have to ask. I'll send you the price list by Friday.";

TEST(Feedback, SaysWhatWaitsForTheUserInWordsThatWereSaid) {
  const auto sentences = said(call);
  const auto findings = findingsIn(sentences);
  const Feedback feedback = feedbackOn(sentences, findings);
  EXPECT_EQ(
      feedback.suggestions,
      (std::vector<std::string>{"Answer: What does the support cost?",
                                "Address the concern: The price of the pilot is too high for us.",
                                "You promised: I'll send you the price list by Friday."}));
  EXPECT_EQ(feedback.keywords, (std::vector<std::string>{"pilot", "price"}));
  EXPECT_EQ(feedback.feedbackSummary.find("Thanks"), std::string::npos);
  EXPECT_TRUE(text::contains(feedback.feedbackSummary, "pilot"));
  const Json items = memoryItems(findings, 2);
  ASSERT_EQ(items.items().size(), 2u);
  EXPECT_EQ(items.items()[0].stringAt("title"), "You promised");
  EXPECT_EQ(items.items()[0].stringAt("id"), memoryItems(findings, 1).items()[0].stringAt("id"));
  EXPECT_NE(items.items()[0].stringAt("id"), items.items()[1].stringAt("id"));
  EXPECT_EQ(titleOf(sentences), "Pilot, price");
  EXPECT_TRUE(feedbackOn(said("[OTHER] Hi.\n[YOU] Hello!"), {}).empty());
  EXPECT_EQ(titleOf(said("[OTHER] Hi there, good morning.")), "");
}

TEST(Documents, ShowThePassageThatFitsAndOwnUpToWhatCannotBeRead) {
  const Json body = *Json::parse(R"({"documents":[
    {"name":"Prices","content":"We were founded in 1999.\nSupport costs 20 a month.\nThe pilot is free."},
    {"name":"Menu","content":"Soup. Bread."},
    {"name":"Deck","content":"","content_bytes":"JVBERi0=","mime_type":"application/pdf"}]})");
  const Json items = docItems(body.objectsAt("documents"), said("[OTHER] Is support part of it?"));
  ASSERT_EQ(items.items().size(), 2u);
  EXPECT_EQ(items.items()[0].dump(), R"({"title":"Prices","detail":"Support costs 20 a month."})");
  EXPECT_TRUE(text::contains(items.items()[1].stringAt("detail", ""), "application/pdf"));
}

TEST(ModelFeedback, IsReadWhateverStandsAroundIt) {
  const auto feedback = feedbackIn(
      "Here:\n```json\n{\"feedbackSummary\":\" S \",\"suggestions\":[\"a\",7,\" \"]}\n```");
  ASSERT_TRUE(feedback);
  EXPECT_EQ(feedback->feedbackSummary, "S");
  EXPECT_EQ(feedback->suggestions, std::vector<std::string>{"a"});
  for (const char* useless : {"", "}{", "{}", "{\"feedbackSummary\":7}", "no idea"})
    EXPECT_FALSE(feedbackIn(useless)) << useless;
  const auto prompt =
      feedbackPrompt(*Json::parse(R"({"custom_prompt":"Be kind.","transcript":"[YOU] Hi",
        "documents":[{"name":"D","content":"text"}],"pinnedItems":[{"detail":"pin"}]})"),
                     "met twice");
  EXPECT_TRUE(prompt.system.starts_with("Be kind.\n"));
  for (const char* part : {"met twice", "Document D:\ntext", "- pin", "Conversation:\n[YOU] Hi"})
    EXPECT_TRUE(text::contains(prompt.user, part)) << part;
}

TEST(ModelFeedback, GivesNothingInsteadOfTooLateOrNonsense) {
  const auto event = [](const std::string& text) {
    const Json delta = Json::object({{"delta", Json::object({{"content", text}})}});
    return "data: " + Json::object({{"choices", Json(Json::Array{delta})}}).dump() + "\n\n";
  };
  const std::string good = event("{\"feedbackSummary\":") + event("\"S\"}") + "data: [DONE]\n\n";
  const std::vector<std::tuple<ScriptedReply, const char*, Duration>> cases{
      {ScriptedReply::events({{1s, good}}), "S", 1s},
      {ScriptedReply::events({{1s, event("nothing to say") + "data: [DONE]\n\n"}}), "-", 1s},
      {ScriptedReply::never(), "-", ModelFeedback::patience},
      {ScriptedReply::refused(), "-", 1500ms},  // asked three times
      {ScriptedReply::body("busy", 503), "-", 1500ms}};
  for (const auto& [reply, expected, when] : cases) {
    SimulatedWorld world;
    world.http.on("GET", "*/v1/models", ScriptedReply::body("{\"data\":[]}"));
    world.http.on("POST", "*/v1/chat/completions", reply);
    agent::LanguageModel model(world.http.makeSession({}));
    ModelFeedback feedback(world.dispatch, model, "", [](const std::string&) {});
    std::string heard;
    const auto ask = [&](const char* url) {
      feedback.ask(Json::object({{"custom_llm_url", url}, {"transcript", "[YOU] Hi"}}), "",
                   [&](const std::optional<Feedback>& answer) {
                     heard += answer ? answer->feedbackSummary : "-";
                   });
    };
    ask("");
    EXPECT_EQ(heard, "-") << "no model is configured";
    heard.clear();
    ask("http://127.0.0.1:8080");
    world.simulation->runFor(when + 500ms);
    EXPECT_EQ(heard, expected);
    world.simulation->runFor(120s);
    EXPECT_EQ(heard, expected) << "once only";
  }
}

}  // namespace
}  // namespace kestrin::assist
