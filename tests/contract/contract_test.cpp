#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "contract/contract_world.h"
#include "identity/google/google_auth_service.h"
#include "liveassist/drive_client.h"
#include "services/local/connection_warmup_service.h"
#include "usermodel/preferences/system_status.h"
#include "usermodel/preferences/update_check.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

TEST(Contract, ADictationIsWrittenKeptAndCounted) {
  ContractWorld world;
  const auto result = world.dictate("plain");
  ASSERT_TRUE(result) << result.error().description;
  EXPECT_EQ(result->transcript, SentenceEngine::sentence);
  EXPECT_EQ(result->text, SentenceEngine::sentence);
  EXPECT_EQ(result->text, world.chunks.text());
  EXPECT_EQ(result->mode, "plain");
  EXPECT_FALSE(result->isCommand);
  ASSERT_TRUE(world.dictate("email"));
  world.core->transcription->waitForBackendReports(20s);

  const auto history = world.answer<Result<HistoryAnswer>>(
      [&](auto done) { world.core->stats.fetchHistory(world.user(), 10, done); });
  ASSERT_TRUE(history);
  EXPECT_FALSE(history->cachedBecause);
  ASSERT_EQ(history->history.size(), 2u);
  const Date now = world.dispatch.clock().wallNow();
  const auto entry = HistoryEntry::fromServer(history->history[1], "id", now + 24h);
  EXPECT_EQ(entry.mode + "|" + entry.input + "|" + entry.output + "|" + entry.appContext,
            std::string("plain|") + SentenceEngine::sentence + "|" + SentenceEngine::sentence +
                "|Text Editor");
  EXPECT_LT(entry.timestamp, now + 1h) << "its own time, not the fetch's";
  EXPECT_EQ(HistoryEntry::fromServer(history->history[0], "id", now).mode, "email");

  const auto stats = world.answer<Result<UserStats>>(
      [&](auto done) { world.core->stats.fetchStats(world.user(), done); });
  ASSERT_TRUE(stats) << stats.error().description;
  EXPECT_EQ(stats->transcriptionCount, 2);
  EXPECT_EQ(stats->streak, 1);
  EXPECT_GT(stats->totalWords, 15);
  EXPECT_GT(stats->averageWPM, 100);

  EXPECT_TRUE(world.answer<Status>(
      [&](auto done) { world.core->stats.deleteHistory(world.user(), done); }));
  EXPECT_TRUE(world
                  .answer<Result<HistoryAnswer>>(
                      [&](auto done) { world.core->stats.fetchHistory(world.user(), 10, done); })
                  ->history.empty());
}

TEST(Contract, NotesAreMadeKeptAndChanged) {
  ContractWorld world;
  std::string heard;
  const auto made = world.answer<Result<VoiceNote>>([&](auto done) {
    world.core->notes.createNoteFromPCM(world.speech(), done,
                                        [&](const std::string& text) { heard = text; });
  });
  ASSERT_TRUE(made) << made.error().description;
  EXPECT_EQ(heard, SentenceEngine::sentence);
  EXPECT_NE(made->content.find("drawings"), std::string::npos);
  const auto changed = world.answer<Result<VoiceNote>>(
      [&](auto done) { world.core->notes.updateNote(made->id, "# Changed", std::nullopt, done); });
  ASSERT_TRUE(changed) << changed.error().description;
  const auto listed = world.answer<std::vector<VoiceNote>>([&](auto done) {
    world.core->notes.fetchNotes(
        [done](const std::vector<VoiceNote>& notes, const Status& outcome) {
          EXPECT_TRUE(outcome);
          done(notes);
        });
  });
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0], *changed);
  EXPECT_EQ(listed[0].transcript, made->transcript);
  EXPECT_TRUE(dates::parseIso8601(listed[0].createdAt) && listed[0].updatedAt);
}

TEST(Contract, ThePersonalModelIsLearntFromWhatWasSaid) {
  ContractWorld world;
  PersonalityService& service = world.core->personality;
  const auto personality = world.answer<Result<std::string>>([&](auto done) {
    service.processPersonalityTest(
        {{0, wav::write(world.speech()), 2000}, {1, wav::write(world.speech()), 2000}}, done);
  });
  ASSERT_TRUE(personality) << personality.error().description;
  EXPECT_NE(*personality, "");
  EXPECT_NE(world.settings.string(UserPreferences::userAboutMeTranscriptKey).find("drawings"),
            std::string::npos);
  const auto archetype = world.answer<Archetype>([&](auto done) { service.getArchetype(done); });
  EXPECT_EQ(archetype, Archetype::defaultArchetype()) << "of somebody who has hardly spoken";
  EXPECT_TRUE(service.isDefault());
  for (int i = 0; i < 6; ++i) ASSERT_TRUE(world.dictate("plain"));
  world.core->transcription->waitForBackendReports(20s);
  const auto classified =
      world.answer<Result<Archetype>>([&](auto done) { service.classifyArchetype(done); });
  ASSERT_TRUE(classified) << classified.error().description;
  EXPECT_NE(classified->stylePrompt, "");
  EXPECT_FALSE(classified->traits.empty());
  EXPECT_EQ(service.stylePrompt(), classified->stylePrompt);
  const auto refreshed = world.answer<Result<std::string>>(
      [&](auto done) { service.refreshPersonality("calm", done); });
  EXPECT_TRUE(refreshed) << refreshed.error().description;
  const auto profile = world.answer<std::optional<VoiceProfile>>(
      [&](auto done) { service.fetchProfile(true, done); });
  ASSERT_TRUE(profile);
  EXPECT_GE(profile->sampleCount, 6);
  EXPECT_FALSE(profile->emotion.empty() && profile->intent.empty());
}

TEST(Contract, TheHomePageHasItsBriefingItsTriggersAndHonestMail) {
  ContractWorld world;
  Home& home = *world.home;
  world.notes = {{"n", "Ask the printers for the darker paper.", {}, "2026-03-01T10:00:00Z", {}}};
  const Date now = world.dispatch.clock().wallNow();
  world.calendars.records = std::vector<CalendarRecord>{{"c", "Stand-up", now + 8min, now + 20min}};
  home.start();
  world.until([&] { return !home.calendar().todayEvents().empty(); });
  home.triggers().evaluateTriggers();
  home.caches().refreshLatestBriefingCache();
  world.until([&] { return home.caches().hasBriefingAudio(); });
  EXPECT_NE(home.caches().cachedLatestBriefingText().find("Stand-up"), std::string::npos);
  world.until([&] { return !home.caches().cachedNotesSummary().empty(); });
  EXPECT_NE(home.caches().weatherProblem().find("pref_weatherEndpoint"), std::string::npos)
      << "nobody named a weather service";
  world.until([&] { return !home.caches().cachedNewsSpeechText().empty(); });

  world.until([&] { return !world.userNotifications.shown.empty(); });
  EXPECT_NE(world.userNotifications.shown[0].first.body.find("Stand-up"), std::string::npos);

  home.view().handleQuickAction("Give me one useful tip for today");
  world.until([&] { return !home.view().panel().isLoading; });
  EXPECT_NE(home.view().panel().text.find("language model is needed"), std::string::npos)
      << "the question is no answer to itself: " << home.view().panel().text;

  world.until([&] { return !home.gmail().isLoading(); });
  EXPECT_EQ(home.gmail().prompt(), GmailPanel::connectPrompt);
  EXPECT_EQ(home.gmail().problem(), "");
  auto& form = home.gmail().compose();
  form.show({});
  form.recipientTyped("ann@example.org");
  form.subjectField = "Hello";
  form.sendEmailClicked();
  world.until([&] { return !form.isSending(); });
  EXPECT_EQ(form.message(), ComposeEmailPanel::sendFailed);
  EXPECT_NE(form.reason(), "");
}

/// Takes what the manager tells.
struct Listener final : LASessionManagerDelegate {
  void didLoadTranscripts(LiveAssistSessionManager&, const std::vector<Json>& loaded,
                          const std::string&) override {
    transcripts = loaded;
  }
  void didUpdateFiles(LiveAssistSessionManager&, const std::vector<LAAttachedFile>&) override {}
  std::vector<Json> transcripts;
};

TEST(Contract, ALiveAssistSessionComesBackWithEverythingInIt) {
  ContractWorld world;
  LiveAssistSessionManager manager(world.dispatch, *world.http, world.files, world.core->logger,
                                   world.user(), world.endpoints.backend);
  const auto listener = std::make_shared<Listener>();
  manager.delegate = listener;
  manager.startSession();
  world.until([&] { return manager.currentSessionId().has_value(); });
  const std::string id = *manager.currentSessionId();
  manager.updateContact("ann@example.org", "Ann");
  manager.addPinnedItem(Json::object({{"id", "p1"}, {"title", "Price"}}));
  manager.logTranscript(LAAudioChannel::microphone, "I send the drawings on Monday.", 1,
                        Json::object({{"emotion", "neutral"}}));
  manager.logTranscript(LAAudioChannel::system, "Can you send forty of them?", 2, Json::object({}));
  LAFeedbackSnapshot snapshot;
  snapshot.feedbackSummary = "They want forty.";
  snapshot.suggestions = {"Say yes"};
  manager.saveSessionFeedbackSnapshot(snapshot);
  manager.endSession();

  Json session;
  world.until([&] {
    const auto full =
        world.answer<Result<Json>>([&](auto done) { manager.loadFullSession(id, done); });
    session = full.value_or(Json());
    return session.find("endTime") != nullptr;
  });
  EXPECT_EQ(session.stringAt("contactName", ""), "Ann");
  EXPECT_EQ(session.stringAt("contactEmail", ""), "ann@example.org");
  EXPECT_EQ(session.objectsAt("pinnedItems").size(), 1u);
  const Json* feedback = session.objectAt("feedbackSnapshot");
  ASSERT_TRUE(feedback);
  EXPECT_EQ(LAFeedbackSnapshot::fromJson(*feedback).suggestions, snapshot.suggestions);
  manager.loadSessionTranscripts(id);
  world.until([&] { return listener->transcripts.size() == 2; });
  EXPECT_EQ(listener->transcripts[1].stringAt("text", ""), "Can you send forty of them?");
  EXPECT_EQ(listener->transcripts[1].stringAt("channel", ""), "system");
  manager.loadHistory();
  world.until([&] { return manager.cachedSessions().size() == 1; });
  const auto emailed =
      world.answer<Status>([&](auto done) { manager.emailSessionReport(id, done); });
  ASSERT_FALSE(emailed) << "the companion sends no mail";
  EXPECT_NE(emailed.error().description, "");

  LiveContextClient context(world.dispatch, *world.http, world.settings, world.core->deviceId,
                            world.core->geminiKey, world.core->preferences, world.endpoints);
  LiveContextRequest request;
  request.transcript = "[THEM] Can you send forty of the drawings by Monday?\n[YOU] I will look.\n";
  request.generateFeedback = true;
  request.contactEmail = "ann@example.org";
  request.filters = {{"memories", true}, {"history", true}};
  request.documents = {
      Json::object({{"name", "plan.txt"}, {"content", "Forty drawings are planned."}})};
  const auto help = world.answer<Result<Json>>([&](auto done) { context.refresh(request, done); });
  ASSERT_TRUE(help) << help.error().description;
  EXPECT_FALSE(help->stringsAt("suggestions").empty());
  EXPECT_FALSE(help->objectsAt("docItems").empty());
  EXPECT_FALSE(help->objectsAt("memoryItems").empty()) << "of the session before";
  const auto contact = world.answer<Result<Json>>(
      [&](auto done) { context.contactContext("ann@example.org", "Ann", done); });
  ASSERT_TRUE(contact) << contact.error().description;
  EXPECT_EQ(contact->numberAt("sessionCount").value_or(0), 1);

  DriveClient drive(world.dispatch, *world.http, world.user(), world.endpoints.backend);
  const auto files =
      world.answer<Result<std::vector<DriveFile>>>([&](auto done) { drive.files(done); });
  ASSERT_FALSE(files) << "no Drive is linked";
  EXPECT_NE(files.error().description, "");
}

TEST(Contract, TheRestOfTheApplicationFindsWhatItReads) {
  ContractWorld world;
  ConnectionWarmupService warmup(world.dispatch, *world.http, world.settings, world.core->logger,
                                 world.core->geminiKey, world.endpoints);
  EXPECT_TRUE(world.answer<bool>([&](auto done) { warmup.warmup(done); }));
  EXPECT_TRUE(warmup.status().asrReady && warmup.status().agentReady &&
              warmup.status().backendReady);

  UpdateCheck updates(*world.http, world.endpoints);
  const auto published =
      world.answer<std::optional<PublishedVersion>>([&](auto done) { updates.ask(done); });
  ASSERT_TRUE(published);
  EXPECT_EQ(published->version, "7.0");
  AccountStatus account(*world.http, world.endpoints, world.core->deviceId);
  EXPECT_EQ(world.answer<std::string>([&](auto done) { account.ask(done); }), "Not connected");

  const auto processed = world.answer<Result<AgentAnswer>>([&](auto done) {
    world.core->agent.process(
        Json::object({{"transcript", "hello there"}, {"mode", "plain"}, {"user_id", world.user()}}),
        world.dispatch.mainQueue(), done);
  });
  ASSERT_TRUE(processed && processed->text()) << "what a mode's test shows";

  ResearchService& research = world.core->research;
  ResearchSession session{.id = "5D1C0B9E-0000-4000-8000-000000000001",
                          .query = "deep lakes",
                          .summary = "They are deep [1].",
                          .sources = {{"Lake", "http://l.example/", "deep"}}};
  EXPECT_TRUE(
      world.answer<Status>([&](auto done) { research.saveResearchSession(session, done); }));
  const auto kept = world.answer<Result<std::vector<ResearchSession>>>(
      [&](auto done) { research.loadResearchHistory(done); });
  ASSERT_TRUE(kept && kept->size() == 1);
  EXPECT_EQ(kept->front().query, "deep lakes");
  EXPECT_EQ(kept->front().sources, session.sources);
  const auto job =
      world.answer<Result<std::string>>([&](auto done) { research.startJob("drawings", done); });
  ASSERT_TRUE(job) << job.error().description;
  world.until([&] {
    return world.answer<ResearchJobStatus>([&](auto done) { research.jobStatus(*job, done); })
               .state == ResearchJobStatus::State::complete;
  });
  EXPECT_TRUE(world.answer<Status>([&](auto done) { research.deleteSession(session.id, done); }));
}

TEST(Contract, EveryCommandOfTheTerminalHasItsAnswer) {
  ContractWorld world;
  ASSERT_TRUE(world.dictate("plain"));
  world.core->transcription->waitForBackendReports(20s);
  TerminalView terminal(terminalServices(*world.core, *world.home));
  for (const char* line :
       {"history -v", "research list", "research stats", "notes list", "calls list -v",
        "firestore status", "firestore sync", "firestore stats", "health --all -v", "user -v",
        "calendar", "stats -v", "modes", "personality -v", "config -a"}) {
    const size_t before = terminal.output().size();
    terminal.processCommand(line);
    world.until([&] { return terminal.pending() == 0; });
    std::string said;
    for (size_t i = before; i < terminal.output().size(); ++i) {
      said += terminal.output()[i].text;
      const bool off = said.find("LLM") != said.npos;
      EXPECT_TRUE(terminal.output()[i].color != TerminalColor::error || off)
          << line << ": " << said;
    }
    if (std::string(line) == "history -v") {
      EXPECT_NE(said.find("drawings"), said.npos) << said;
    }
  }
}

TEST(Contract, TheListOfEndpointsIsTheListOfRoutes) {
  ContractWorld world;
  std::ifstream file(KESTRIN_SOURCE_DIR "/docs/services.md");
  std::ostringstream text;
  text << file.rdbuf();
  std::set<std::string> told;
  const std::regex endpoint("`(GET|POST|PUT|DELETE) (/[^`? ]*)");
  const std::string all = text.str();
  for (std::sregex_iterator each(all.begin(), all.end(), endpoint), end; each != end; ++each)
    told.insert((*each)[1].str() + " " + (*each)[2].str());
  ASSERT_GT(told.size(), 30u);
  // One prefix serves several: "/live-assist/session/*" all that follow an id.
  const auto serves = [](const std::string& route, const std::string& called) {
    return route.ends_with('*') ? called.starts_with(route.substr(0, route.size() - 1))
                                : called == route;
  };
  std::vector<std::string> routes;
  for (const auto& service : world.companion.services())
    for (const auto& name : service.server->routes())
      routes.push_back(name.method + " " + name.path);
  for (const std::string& route : routes)
    EXPECT_TRUE(std::any_of(told.begin(), told.end(),
                            [&](const auto& each) { return serves(route, each); }))
        << route << " is not in docs/services.md";
  for (const std::string& each : told)
    EXPECT_TRUE(std::any_of(routes.begin(), routes.end(),
                            [&](const auto& route) { return serves(route, each); }))
        << each << " of docs/services.md is served by nobody";
}

}  // namespace
}  // namespace kestrin::test
