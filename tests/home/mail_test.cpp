#include <gtest/gtest.h>

#include "home_world.h"

namespace kestrin::test {
namespace {

const std::string backend = "127.0.0.1:8780";
constexpr const char* inbox = R"({"messages":[7,
  {"id":"1/?","threadId":"t","from":"bob@x","fromName":"Bob","subject":"Plan","date":"Monday",
   "snippet":"Hi","isUnread":true},
  {"id":"2","bodyPreview":"whole","isUnread":"yes"},{"id":"3","from":"c@x"},{"id":"4"}]})";

/// A mailbox that is connected and answers well until told otherwise.
struct MailWorld : HomeWorld {
  explicit MailWorld(uint64_t seed = 1) : HomeWorld(seed), panel(*gmail) {
    on("GET", "/gmail/status/*", R"({"hasAccess":true,"unreadCount":9})");
    on("POST", "/gmail/messages", inbox);
    on("POST", "/gmail/summary", R"({"summary":"Two letters."})");
    on("POST", "/gmail/send", R"({"success":true})");
    on("GET", "/contacts/frequent/*",
       R"({"contacts":[{"name":"Bob","email":"bob@x"},{"name":1}]})");
    on("GET", "/contacts/search*",
       R"({"contacts":[{"email":"bob@x"},{"name":"Bo Ek","email":"ek@x"},{"email":"else@x"}]})");
    panel.onStatus = std::exchange(speech->onStatus, {});
  }
  void on(const char* method, const std::string& path, const std::string& body) {
    http.on(method, backend + path, ScriptedReply::body(body));
  }
  void load() {
    main([&] { panel.checkGmailAccessAndLoadEmails(); });
  }
  std::string cards() const {
    std::string out;
    for (const Email& email : panel.cachedEmails())
      out += email.sender() + ": " + email.shownSubject() + "|";
    return out;
  }
  Json sent(const std::string& path, const std::string& host = backend) {
    const auto seen = http.requests(host + path);
    return seen.empty() ? Json() : *Json::parse(seen.back().request.body);
  }
  std::string spoken() { return sent("/tts", agentHost).stringAt("text", ""); }

  GmailPanel& panel;
};

const std::string allCards = "Bob: Plan|Unknown: (No subject)|c@x: (No subject)|";

TEST(Mail, ShowsTheNewestAndKeepsThemThroughEveryFault) {
  MailWorld world;
  EXPECT_EQ(world.panel.prompt(), "") << "nobody was asked yet";
  world.load();
  EXPECT_EQ(world.cards(), allCards);
  EXPECT_EQ(world.panel.mailSummary().subjects, std::vector<std::string>{"Plan"});
  EXPECT_EQ(world.sent("/gmail/messages"),
            Json::object({{"device_user_id", world.deviceId.deviceId()},
                          {"max_results", 3},
                          {"query", "in:inbox"}}));
  EXPECT_TRUE(world.settings.boolean("hasGmailAccess"));
  world.main([&] { world.panel.openEmail(world.panel.cachedEmails()[0]); });
  EXPECT_EQ(world.desktop.opened.at(0), "https://mail.google.com/mail/u/0/#inbox/1%2F%3F");
  for (const char* endpoint : {"/gmail/messages", "/gmail/status/*"}) {
    for (const auto& reply :
         {ScriptedReply::refused(), ScriptedReply::lost(), ScriptedReply::body(""),
          ScriptedReply::body("\xff<"), ScriptedReply::body("[]"), ScriptedReply::body("<p>", 502),
          ScriptedReply::body(R"({"hasAccess":1,"messages":{}})"),
          ScriptedReply::body(R"({"success":false,"error":"no link here"})", 501),
          ScriptedReply::body(inbox).cutAfter(40)}) {
      world.http.on("*", backend + endpoint, reply);
      world.load();
      EXPECT_EQ(world.cards(), allCards);
      EXPECT_NE(world.panel.problem(), "");
      EXPECT_FALSE(world.panel.isLoading());
      EXPECT_TRUE(world.panel.hasGmailAccess());
    }
  }
  world.on("GET", "/gmail/status/*", R"({"hasAccess":true})");
  world.on("POST", "/gmail/messages", R"({"messages":[]})");
  world.load();
  EXPECT_EQ(world.panel.problem() + world.cards(), "") << "an empty inbox is no fault";
  world.on("GET", "/gmail/status/*", R"({"hasAccess":false})");
  world.load();
  EXPECT_EQ(world.panel.prompt(), "Connect Gmail to see emails");
  world.main([&] { world.panel.summarizeEmailsClicked(); });
  EXPECT_EQ(world.statuses,
            "!Gmail is not connected. Please connect your Gmail account in Settings.|");
  EXPECT_EQ(world.sent("/gmail/summary"), Json());
}

TEST(Mail, OnlyTheNewestLoadCounts) {
  for (uint64_t seed = 1; seed <= 30; ++seed) {
    MailWorld world(seed);
    int ended = 0;
    world.http.once("GET", backend + "/gmail/status/*",
                    ScriptedReply::body(R"({"hasAccess":false})").after(5s));
    world.main([&] { world.panel.checkGmailAccessAndLoadEmails([&] { ++ended; }); }, 1s);
    world.main([&] { world.panel.checkGmailAccessAndLoadEmails([&] { ++ended; }); });
    EXPECT_EQ(world.cards(), allCards);
    EXPECT_EQ(ended, 2);
  }
}

TEST(Mail, IsReadAnewEveryTenMinutesWhileItMayBe) {
  MailWorld world;
  const auto asked = [&](Duration meanwhile) {
    world.simulation->runFor(meanwhile);
    return world.http.requests(backend + "/gmail/status/*").size();
  };
  world.main([&] { world.panel.start(); });
  EXPECT_EQ(asked(0s), 1u);
  EXPECT_EQ(asked(1190s), 3u);
  world.on("POST", "/gmail/messages", R"({"messages":[{"from":"new@x"}]})");
  EXPECT_EQ(asked(600s), 4u);
  EXPECT_EQ(world.cards(), "new@x: (No subject)|");
  world.on("GET", "/gmail/status/*", R"({"hasAccess":false})");
  EXPECT_EQ(asked(600s), 5u);
  EXPECT_EQ(asked(6000s), 5u) << "nobody is asked for what is not linked";
}

TEST(Mail, TheSummaryIsReadAloudAndAFaultIsToldAloud) {
  MailWorld world;
  world.load();
  world.main([&] { world.panel.summarizeEmailsClicked(); });
  EXPECT_EQ(world.statuses, "🔊 Summarizing emails...|🔊 Reading emails...|");
  EXPECT_EQ(world.spoken(), "Two letters.");
  EXPECT_EQ(world.sent("/gmail/summary").intAt("count"), 5);
  world.on("POST", "/gmail/summary", R"({"summary":["x"]})");
  world.main([&] { world.panel.summarizeEmailsClicked(); });
  EXPECT_EQ(world.spoken(), "Sorry, I couldn't fetch your email summary.");
  EXPECT_EQ(world.panel.summary(), "Two letters.");
  EXPECT_FALSE(world.panel.isSummarizing());
}

TEST(Mail, AReplyKeepsItsThreadAndAFailedOneItsWords) {
  MailWorld world;
  world.load();
  ComposeEmailPanel& form = world.panel.compose();
  world.main([&] { world.panel.showComposeEmailPanel(world.panel.cachedEmails()[0]); });
  EXPECT_EQ(form.currentToField() + "|" + form.subjectField + "|" + form.bodyField,
            "bob@x|Re: Plan|\n\n\n———— Original Message ————\nFrom: Bob\nMonday\nHi");
  form.bodyField = "Yes" + form.bodyField;
  const std::string written = form.bodyField;
  for (const auto& reply :
       {ScriptedReply::never(), ScriptedReply::body(""), ScriptedReply::body("x"),
        ScriptedReply::body("{}"), ScriptedReply::body(R"({"success":true})", 500),
        ScriptedReply::body(R"({"success":false,"error":"full"})")}) {
    world.http.on("POST", backend + "/gmail/send", reply);
    world.statuses.clear();
    world.main(
        [&] {
          form.sendEmailClicked();
          form.sendEmailClicked();
          form.close();
          world.panel.showComposeEmailPanel();
          form.close();
        },
        31s);
    EXPECT_TRUE(form.isOpen() && !form.isSending());
    EXPECT_EQ(form.bodyField, written);
    EXPECT_EQ(world.statuses, std::string("!") + ComposeEmailPanel::sendFailed + "|")
        << "told once";
  }
  EXPECT_EQ(form.reason(), "full");
  world.on("POST", "/gmail/send", R"({"success":true})");
  world.statuses.clear();
  world.main([&] { form.sendEmailClicked(); });
  EXPECT_EQ(world.statuses, "✅ Email sent to bob@x|");
  EXPECT_FALSE(form.isOpen());
  EXPECT_EQ(world.sent("/gmail/send").stringAt("thread_id"), "t");

  world.main([&] { world.panel.showComposeEmailPanel(); });
  world.main([&] { form.recipientTyped("ek@x"); });
  world.main([&] { form.sendEmailClicked(); });
  EXPECT_EQ(form.message(), "Please enter recipient and subject.");
  form.subjectField = "S";
  world.main([&] { form.sendEmailClicked(); });
  EXPECT_FALSE(world.sent("/gmail/send").has("thread_id"));
  EXPECT_EQ(world.http.requests(backend + "/gmail/send").size(), 8u);
}

TEST(Mail, TypingFindsContactsOfTheNewestTextOnly) {
  MailWorld world;
  ComposeEmailPanel& form = world.panel.compose();
  world.main([&] { world.panel.showComposeEmailPanel(); });
  for (const char* typed : {"B", "Bo"}) world.main([&] { form.recipientTyped(typed); }, 100ms);
  EXPECT_EQ(form.contactSuggestions(), (std::vector<MailContact>{{"Bob", "bob@x"}}));
  world.simulation->runFor(5s);
  EXPECT_EQ(form.contactSuggestions(),
            (std::vector<MailContact>{{"Bob", "bob@x"}, {"Bo Ek", "ek@x"}}));
  const auto asked = world.http.requests(backend + "/contacts/search*");
  ASSERT_EQ(asked.size(), 1u);
  EXPECT_TRUE(asked[0].request.url.ends_with("&query=Bo"));
  world.main([&] { form.recipientTyped("bob"); }, 301ms);
  world.main([&] { form.chooseSuggestion(0); });
  EXPECT_EQ(form.currentToField(), "bob@x");
  EXPECT_TRUE(form.contactSuggestions().empty()) << "a late answer brings none back";
}

}  // namespace
}  // namespace kestrin::test
