#include "rooms/rooms_world.h"

namespace kestrin::test {
namespace {

TEST(Rooms, TwoInstallationsSeeCallAndLeaveEachOther) {
  RoomsWorld world;
  for (auto& side : world.sides) side->presence.startPresence();
  world.until([&] { return world.online(0) == 1 && world.online(1) == 1; });
  const std::string room = world.ring();
  EXPECT_EQ(world.history(1), "incoming ringing Ada; ");
  world.sides[1]->calls.endCall("declined");
  world.until([&] { return world.sides[1]->calls.callStatus() == CallStatus::idle; });
  EXPECT_EQ(world.history(0), "outgoing ringing Ada; ")
      << "an unanswered call is declined here alone";
  world.sides[0]->calls.endCall("timeout");
  world.until([&] { return world.history(0) == "outgoing timeout Ada; "; });

  const std::string second = world.ring();
  EXPECT_NE(second, room) << "the declined one does not ring again";
  const std::string token = world.answer(second);
  EXPECT_EQ(world.history(0), "outgoing answered Ada; outgoing timeout Ada; ");

  // What one side's page signals reaches the other side's, and nobody without the room's token.
  std::string got[3];
  const auto relay = [&](size_t i, const std::string& token) {
    return std::make_unique<RoomRelay>(*world.dispatch, world.http->makeSession({}), world.random,
                                       world.endpoints.backend, second, token,
                                       [&got, i](const Json& news) { got[i] += news.dump(); });
  };
  const Json join = *Json::parse(R"({"room":{"to":null,"message":{"type":"join"}}})");
  auto ada = relay(0, world.sides[0]->calls.currentCall()->token);
  ada->take(join);
  world.until([&] { return got[0] == R"({"joined":true})"; });
  auto bob = relay(1, token);
  bob->take(join);
  world.until([&] { return got[0].find(R"("type":"join")") != std::string::npos; });
  EXPECT_EQ(got[1], R"({"joined":true})");
  auto stranger = relay(2, "kestrin-room.guess");
  stranger->take(join);
  world.until([&] { return !got[2].empty(); });
  EXPECT_EQ(got[2], R"({"error":"This room is closed to you"})");
  bob.reset();
  world.until([&] { return got[0].find(R"("type":"leave")") != std::string::npos; });
  ada.reset();
  stranger.reset();
  world.sides[1]->calls.endCall("ended");
  world.until([&] { return world.history(1).starts_with("incoming ended Ada; "); });
  world.sides[1]->presence.stopPresence();
  world.until([&] { return world.online(0) == 0; });
}

#ifdef KESTRIN_WEB_VIEW
TEST(Rooms, TwoPagesHearAndSeeEachOther) {
  RoomsWorld world;
  for (auto& side : world.sides) side->presence.startPresence();
  world.until([&] { return world.online(0) == 1 && world.online(1) == 1; });
  const std::string room = world.ring();
  const std::string tokens[2] = {world.sides[0]->calls.currentCall()->token, world.answer(room)};
  RoomPages pages(world, room, tokens);
  world.until([&] { return pages.hearsAndSees(0) && pages.hearsAndSees(1); });
  for (const auto& page : pages.pages)
    EXPECT_GT(page.value.numberAt("audio").value_or(0), 0) << page.complaint;
  pages.value(0, muteScript(true) + cameraScript(true) + " 1");
  EXPECT_EQ(pages.value(0, "window.currentRoom.stream.getTracks().map((t) => t.enabled).join()"),
            Json("false,false"));
  pages.value(1, disconnectScript);
  const char* pill = "document.getElementById('status').textContent";
  world.until([&] { return pages.value(0, pill) == Json("Participant left"); });
  EXPECT_EQ(pages.value(1, pill), Json("Call ended"));
}
#endif

}  // namespace
}  // namespace kestrin::test
