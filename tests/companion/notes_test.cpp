#include <gtest/gtest.h>

#include "companion/backend/note_routes.h"
#include "companion/backend/record_search.h"
#include "companion/personality/archetype.h"
#include "companion/personality/profile.h"
#include "companion/raw_client.h"
#include "platform/dispatch/threads.h"
#include "platform/linux/linux_files.h"
#include "support/worlds.h"

namespace kestrin::backend {
namespace {

TEST(NoteRoutes, ANoteIsItsUsersAloneAndCanBeFoundAgain) {
  kestrin::test::ScratchFolder folder;
  const auto dispatch = ThreadsDispatch::make();
  LinuxRandom random;
  BackendService service(*dispatch, std::move(*Store::open(folder.file("store.sqlite"))), "1");
  server::Server server(*dispatch, {});
  addNoteRoutes(server, service, dispatch->clock(), random);
  ASSERT_TRUE(server.start());
  int status = 0;
  const auto ask = [&](const char* method, const std::string& path, const std::string& body = "",
                       const std::string& headers = "") {
    const auto answer = kestrin::testing::ask(server.port(), method, path, body, headers);
    status = answer.size() > 12 ? std::stoi(answer.substr(9, 3)) : 0;
    return Json::parse(answer.substr(answer.find("\r\n\r\n") + 4)).value_or(Json());
  };
  const auto note = [](const std::string& user, const std::string& content) {
    return Json::object({{"user_id", user}, {"content", content}, {"transcript", "as said"}})
        .dump();
  };
  const Json first = ask("POST", "/notes/save", note("device_a", "# The lake\n- forty metres"));
  ASSERT_TRUE(first.objectAt("note"));
  const std::string id = first.objectAt("note")->stringAt("id", "");
  ask("POST", "/notes/save", note("device_a", "# Second"));
  ask("POST", "/notes/save", note("device_b", "# Other"));
  const Json list = ask("GET", "/notes/device_a");
  ASSERT_EQ(list.objectsAt("notes").size(), 2u);
  EXPECT_EQ(list.objectsAt("notes")[0]->stringAt("content"), "# Second") << "newest first";

  EXPECT_FALSE(
      ask("PUT", "/notes/" + id, note("device_b", "# Stolen")).boolAt("success").value_or(true));
  EXPECT_EQ(status, 404);
  ask("GET", "/notes/device_a", "", "X-Device-Id: device_b\r\n");
  EXPECT_EQ(status, 403);
  const Json changed = ask("PUT", "/notes/" + id, note("device_a", "# The lake is deep"));
  EXPECT_EQ(changed.objectAt("note")->stringAt("content"), "# The lake is deep");
  EXPECT_TRUE(changed.objectAt("note")->stringAt("updatedAt"));
  for (const auto& [body, wanted] : std::vector<std::pair<std::string, int>>{
           {"[]", 400},
           {note("device_a", " "), 400},
           {note("", "x"), 400},
           {note("device_a", std::string(1u << 20, 'x')), 413}}) {
    ask("POST", "/notes/save", body);
    EXPECT_EQ(status, wanted) << body.substr(0, 40);
  }
  std::vector<research::Document> found;
  std::atomic<bool> done = false;
  service.withStore([&](Store& store) {
    found = searchRecords(store, "device_a", "how deep is the lake?");
    done = true;
  });
  ASSERT_TRUE(kestrin::test::eventually([&] { return done.load(); }));
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].title.substr(0, 8), "Note of ");
}

TEST(CompanionPersonality, IsWhatTheWordsShow) {
  const auto kind = [](const char* said, const char* mode, size_t count) {
    std::vector<Dictation> all(count);
    for (auto& each : all) {
      each.transcript = said;
      each.mode = mode;
    }
    const Json answer = personality::classify(all);
    EXPECT_EQ(answer.boolAt("isDefault"), count < personality::fewest);
    return answer.objectAt("archetype")->stringAt("archetype_id", "");
  };
  EXPECT_EQ(kind("Send it now.", "chat", 4), "thoughtful_communicator");
  EXPECT_EQ(kind("Send it now.", "chat", 20), "direct_communicator");
  EXPECT_EQ(kind("Where does the river begin?", "search", 20), "curious_explorer");
  EXPECT_EQ(
      kind("The budget is fixed until the end of March and Anna sends the plan.", "notes", 20),
      "organiser");
  EXPECT_EQ(personality::describe("", {{"Q", " "}}), "");
  const auto text = personality::describe(
      "Ada Lovelace", {{"What do you do?", "I build bridges. Bridges are what I love."}});
  EXPECT_NE(text.find("Ada speaks in short, direct sentences"), std::string::npos) << text;
  EXPECT_NE(text.find("bridges"), std::string::npos) << text;
}

}  // namespace
}  // namespace kestrin::backend
