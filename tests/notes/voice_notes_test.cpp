#include <gtest/gtest.h>

#include "notes/notes_view.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::test {
namespace {

using namespace std::chrono_literals;

TEST(VoiceNote, TitlesAndRawTranscripts) {
  EXPECT_EQ(structureRawTranscript(" one two three four five six seven eight nine "),
            "# One two three four five six seven eight…\n\n"
            "- One two three four five six seven eight nine");
  EXPECT_EQ(structureRawTranscript("call Anna. is it done? yes!"),
            "# Call Anna. is it done? yes!\n\n- Call Anna\n- Is it done\n- Yes");
  EXPECT_EQ(structureRawTranscript(" \n"), "# Quick Note\n\n- (empty)");
  const std::string longLine(70, 'x');
  for (const auto& [content, title] : std::vector<std::pair<std::string, std::string>>{
           {"", "Untitled Note"},
           {"***\n- -", "Untitled Note"},
           {"## Plan\ntext", "Plan"},
           {"intro\n# Plan", "Plan"},
           {"# ab\n**Bold one** rest", "Bold one rest"},
           {"- *first* item\nmore", "first item"},
           {longLine, std::string(55, 'x') + "..."},
           {"# " + std::string(55, 'y'), std::string(55, 'y')},
           {"ok", "ok"}}) {
    EXPECT_EQ(extractMeaningfulTitle(content), title) << content;
  }
  const Date now = *dates::parseIso8601("2026-03-01T12:00:00Z");
  const auto ago = [&](const char* created, std::optional<std::string> updated = {}) {
    return VoiceNote{"i", "c", {}, created, updated}.relativeTimeString(now);
  };
  EXPECT_EQ(ago("2026-03-01T11:55:00Z"), "5 minutes ago");
  EXPECT_EQ(ago("2026-02-01T12:00:00Z", "2026-02-27T12:00:00.123Z"), "1 day ago");
  EXPECT_EQ(ago("2026-02-01T12:00:00Z", "soon"), "4 weeks ago") << "an unreadable change is none";
  EXPECT_EQ(ago("nonsense"), "now");
}

/// The page of notes on a simulated machine; every service answers well until told otherwise.
struct NotesWorld : SimulatedWorld {
  static constexpr const char* note =
      R"({"success":true,"note":{"id":"n1","content":"# Made","transcript":"said","createdAt":"2026-03-01T10:00:00Z"}})";

  explicit NotesWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    http.on("POST", "127.0.0.1:8001/*",
            ScriptedReply::body(
                R"({"transcript":"call anna","metadata_probs":{"age":[],"gender":[],)"
                R"("emotion":[{"token":"EMOTION_HAPPY","probability":0.9}],"intent":[]}})"));
    http.on("POST", "127.0.0.1:8765/process",
            ScriptedReply::body(R"({"success":true,"processed_text":"# Call"})"));
    http.on("POST", "127.0.0.1:8780/notes/save", ScriptedReply::body(note));
    http.on(
        "PUT", "127.0.0.1:8780/notes/n1",
        ScriptedReply::body(
            R"({"success":true,"note":{"id":"n1","content":"# New","createdAt":"2026-03-01T10:00:00Z"}})"));
    http.on(
        "GET", "127.0.0.1:8780/notes/device_*",
        ScriptedReply::body(
            R"({"success":true,"notes":[{"id":"n1","content":"# One","createdAt":"x"},{"id":"broken"}]})"));
    settings.set("nibo_user_name", Json("Sam"));
  }
  ~NotesWorld() {
    main([this] { view.reset(); }, 60s);
  }
  void main(const std::function<void()>& what, Duration time = 40s) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(time);
  }
  void record(Duration length = 2s) {
    main([this] { view->startNoteRecording(); }, 500ms);
    audio.speak("mic", std::vector<float>(48000, 0.3F), 48000);
    simulation->runFor(length);
    main([this] { view->stopNoteRecording(); });
  }
  Json sent(const std::string& where) {
    const auto seen = http.requests(where);
    return seen.empty() ? Json() : Json::parse(seen.back().request.body).value_or(Json());
  }
  std::string alert() {
    return view->alert() ? view->alert()->title + ": " + view->alert()->text : "";
  }

  Logger logger{dispatch, notifications};
  Endpoints endpoints{"http://127.0.0.1:8001", "", "http://127.0.0.1:8765",
                      "http://127.0.0.1:8780"};
  DeviceIdManager deviceId{files, settings, random};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager geminiKey{keychain, settings};
  UserPreferences preferences{settings};
  LocalASRService asr{dispatch, http, files, random, logger, endpoints};
  AgentClient agent{http, endpoints};
  LocalCache cache{files, logger};
  NotesService service{
      {dispatch, http, settings, logger, asr, agent, cache, deviceId, geminiKey, preferences},
      endpoints};
  std::optional<NotesView> view{std::in_place,
                                NotesView::Services{dispatch, logger, service, [this] {
                                                      return std::make_unique<AudioRecorder>(
                                                          dispatch, audio, files, settings, logger);
                                                    }}};
};

TEST(VoiceNotes, ARecordingBecomesANote) {
  NotesWorld world;
  world.main([&] { world.view->load(); });
  ASSERT_EQ(world.view->notes().size(), 1u) << "what lacks a part is left out";
  world.record();
  EXPECT_EQ(world.alert(), "");
  ASSERT_EQ(world.view->notes().size(), 2u);
  EXPECT_EQ(world.view->notes()[0].content, "# Made");
  EXPECT_FALSE(world.view->canRetry());
  const Json asked = world.sent("127.0.0.1:8765/process");
  EXPECT_EQ(asked.stringAt("mode"), "notes");
  EXPECT_EQ(asked.stringAt("user_name"), "Sam");
  EXPECT_EQ(asked.objectAt("app_context")->stringAt("window_title"), "Notes");
  const Json saved = world.sent("127.0.0.1:8780/notes/save");
  EXPECT_EQ(saved.stringAt("content"), "# Call");
  EXPECT_EQ(saved.stringAt("transcript"), "call anna");
  EXPECT_TRUE(saved.objectAt("voice_metadata_probs"));

  world.main([&] {
    world.view->openNote("n1");
    world.view->beginEditing();
    world.view->setEditedText(" ");
    world.view->saveEditedNote();
    EXPECT_EQ(world.alert(), "Note is empty: Please add some content before saving.");
    world.view->setEditedText("# New");
    world.view->saveEditedNote();
  });
  EXPECT_EQ(world.view->open()->content, "# New");
  EXPECT_FALSE(world.view->isEditing());
  EXPECT_EQ(world.cache.notes()->at(0).content, "# New") << "the cache has the change";
}

TEST(VoiceNotes, EachServiceMayFailAndNothingSpokenIsLost) {
  const auto failures = std::vector<ScriptedReply>{
      ScriptedReply::refused(),
      ScriptedReply::body("<html>", 500),
      ScriptedReply::body(""),
      ScriptedReply::body("\xff\xfe"),
      ScriptedReply::body("[1]"),
      ScriptedReply::body(R"({"success":false,"error":"no room","note":7})", 507)};
  for (size_t i = 0; i < failures.size(); ++i) {
    NotesWorld world(i);
    world.http.on("POST", "127.0.0.1:8765/process", failures[i]);
    world.record();
    EXPECT_EQ(world.alert(), "") << i;
    EXPECT_EQ(world.sent("127.0.0.1:8780/notes/save").stringAt("content"),
              "# Call anna\n\n- Call anna")
        << "without the agent the words as they are";

    for (const char* where : {"127.0.0.1:8780/notes/save", "127.0.0.1:8001/*"}) {
      NotesWorld down(i);
      down.http.on("POST", where, failures[i]);
      down.record();
      EXPECT_EQ(down.alert().substr(0, 23), "Failed to Create Note: ") << where << i;
      EXPECT_TRUE(down.view->notes().empty());
      ASSERT_TRUE(down.view->canRetry() || down.alert().ends_with("No speech detected"))
          << where << i;
      down.http.on("POST", "127.0.0.1:8780/notes/save", ScriptedReply::body(NotesWorld::note));
      down.http.on("POST", "127.0.0.1:8001/*",
                   ScriptedReply::body(R"({"transcript":"call anna"})"));
      if (!down.view->canRetry()) continue;
      down.main([&] { down.view->retry(); });
      EXPECT_EQ(down.view->notes().size(), 1u) << where << i;
      EXPECT_FALSE(down.view->canRetry());
    }

    NotesWorld list(i);
    list.main([&] { list.view->load(); });
    list.http.on("GET", "127.0.0.1:8780/notes/device_*", failures[i]);
    list.main([&] { list.view->load(); });
    EXPECT_EQ(list.view->notes().size(), 1u) << "what was there stays";
    EXPECT_NE(list.view->problem(), "") << i;
  }
}

TEST(VoiceNotes, WithoutSoundThereIsNoNote) {
  NotesWorld world;
  world.main([&] {
    world.view->startNoteRecording();
    world.view->stopNoteRecording();
  });
  EXPECT_EQ(world.alert(), "No Audio Recorded: Please try again and speak into the microphone.");
  world.audio.refuseCaptures(Error{"Audio", 1, "The microphone is in use"});
  world.main([&] { world.view->startNoteRecording(); });
  EXPECT_FALSE(world.view->isRecording());
  EXPECT_EQ(world.alert(), "Failed to Start Recording: The microphone is in use");
  EXPECT_TRUE(world.http.requests().empty());
}

}  // namespace
}  // namespace kestrin::test
