#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/json/json.h"

namespace kestrin::backend {

/// The rooms in which the pages of a call exchange what they need to find each other. In memory,
/// bounded. Not thread-safe: keep it on one queue.
class RoomHub {
 public:
  static constexpr size_t mostRooms = 1000, mostParticipants = 8, mostSignals = 1000;
  /// A participant that has not asked for so long is taken for gone.
  static constexpr std::chrono::seconds silence{15};
  static constexpr std::chrono::hours forgotten{1};

  explicit RoomHub(Clock& clock) : clock_(clock) {}

  struct Exchange {
    int64_t after = -1;             ///< the last signal that the participant has read
    std::vector<Json> signals;      ///< each with `from` and `message`
    const char* refusal = nullptr;  ///< why nothing was done
  };
  /// Puts `messages` (each with `message`, and `to` for one participant alone) into the room and
  /// gives what came for `participant` since `after`; with -1 it enters.
  Exchange exchange(const std::string& room, const std::string& participant, int64_t after,
                    const std::vector<const Json*>& messages);

 private:
  struct Signal {
    int64_t id;
    std::string from, to;
    Json message;
  };
  struct Room {
    int64_t lastId = 0;
    std::deque<Signal> signals;
    std::map<std::string, SteadyTime> participants;  ///< and when each asked last
    SteadyTime used;
  };
  void add(Room& room, const std::string& from, const std::string& to, Json message);
  void forgetOld(SteadyTime now);

  Clock& clock_;
  std::map<std::string, Room> rooms_;
};

}  // namespace kestrin::backend
