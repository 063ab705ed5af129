#include "companion/calls/room_hub.h"

#include <utility>

namespace kestrin::backend {

void RoomHub::forgetOld(SteadyTime now) {
  std::erase_if(rooms_, [&](const auto& entry) { return now - entry.second.used > forgotten; });
}

void RoomHub::add(Room& room, const std::string& from, const std::string& to, Json message) {
  room.signals.push_back({++room.lastId, from, to, std::move(message)});
  if (room.signals.size() > mostSignals) room.signals.pop_front();
}

RoomHub::Exchange RoomHub::exchange(const std::string& name, const std::string& participant,
                                    int64_t after, const std::vector<const Json*>& messages) {
  const SteadyTime now = clock_.steadyNow();
  forgetOld(now);
  if (!rooms_.contains(name) && rooms_.size() >= mostRooms)
    return {after, {}, "There are too many calls"};
  const bool isNew = !rooms_.contains(name);
  Room& room = rooms_[name];
  if (isNew) {
    // Later than all that a room of this name had before a restart.
    room.lastId =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock_.wallNow().time_since_epoch())
            .count();
  }
  room.used = now;
  std::vector<std::string> gone;
  for (const auto& [id, seen] : room.participants) {
    if (now - seen > silence && id != participant) gone.push_back(id);
  }
  for (const std::string& id : gone) {
    room.participants.erase(id);
    add(room, id, "", Json::object({{"type", "leave"}}));
  }
  if (!room.participants.contains(participant) && room.participants.size() >= mostParticipants)
    return {after, {}, "The room is full"};
  room.participants[participant] = now;
  // Who enters has no use for what was said before.
  Exchange out{after < 0 ? room.lastId : after, {}, nullptr};
  for (const Json* each : messages) {
    const Json* message = each->objectAt("message");
    if (message == nullptr) continue;
    if (message->stringAt("type", "") == "leave") room.participants.erase(participant);
    add(room, participant, each->stringAt("to", ""), *message);
  }
  for (const Signal& signal : room.signals) {
    if (signal.id <= out.after || signal.from == participant) continue;
    if (!signal.to.empty() && signal.to != participant) continue;
    out.signals.push_back(Json::object({{"from", signal.from}, {"message", signal.message}}));
  }
  out.after = room.lastId;
  return out;
}

}  // namespace kestrin::backend
