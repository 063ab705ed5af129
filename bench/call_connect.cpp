// How long it takes from an answered call until both sides hear and see each other: two web views
// started from nothing, their page, and WebRTC between them over the companion. Run it inside
// scripts/desktop-session.
#include <algorithm>
#include <iostream>
#include <vector>

#include "rooms/rooms_world.h"

int main() {
  using namespace kestrin;
  using namespace kestrin::test;
  constexpr size_t calls = 5;
  RoomsWorld world;
  for (auto& side : world.sides) side->presence.startPresence();
  world.until([&] { return world.online(0) == 1 && world.online(1) == 1; });
  std::vector<double> seconds;
  while (seconds.size() < calls) {
    const std::string room = world.ring();
    const SteadyTime began = world.dispatch->clock().steadyNow();
    const std::string tokens[2] = {world.sides[0]->calls.currentCall()->token, world.answer(room)};
    RoomPages pages(world, room, tokens);
    world.until([&] { return pages.hearsAndSees(0) && pages.hearsAndSees(1); });
    seconds.push_back(
        std::chrono::duration<double>(world.dispatch->clock().steadyNow() - began).count());
    std::cout << "call " << seconds.size() << ": " << seconds.back() << " s" << std::endl;
    for (auto& side : world.sides) {
      side->calls.endCall("ended");
      world.until([&] { return side->calls.callStatus() == CallStatus::idle; });
    }
  }
  std::sort(seconds.begin(), seconds.end());
  std::cout << "median " << seconds[calls / 2] << " s, worst " << seconds.back() << " s\n";
  return 0;
}
