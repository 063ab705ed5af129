#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/files.h"
#include "platform/http.h"
#include "platform/json/json.h"
#include "platform/lifetime.h"

namespace kestrin {

/// Carries the signals of one page in a room of our own to the backend and back. It asks often
/// while the two find each other, seldom after; a backend that is away is asked again until this
/// goes, for the call itself does not need it. Main queue only; must be destroyed there.
class RoomRelay {
 public:
  static constexpr std::chrono::milliseconds quickInterval{300};
  static constexpr std::chrono::milliseconds calmInterval{2000};
  /// So long after anything was signalled it asks quickly.
  static constexpr std::chrono::seconds quickFor{20};

  /// `deliver` gets what `kestrinRoom.receive` takes. `session` outlives this: the last request is
  /// still under way then.
  RoomRelay(Dispatch& dispatch, std::shared_ptr<HttpSession> session, Random& random,
            std::string backend, std::string roomName, std::string token,
            std::function<void(const Json&)> deliver);
  /// Tells the room that this side is gone.
  ~RoomRelay();
  RoomRelay(const RoomRelay&) = delete;
  RoomRelay& operator=(const RoomRelay&) = delete;

  /// A value that the page sent; anything but a signal is ignored.
  void take(const Json& fromPage);

 private:
  void exchange();
  void answered(const Result<HttpResponse>& response, size_t sent);
  void askAgain();
  Json request() const;

  Dispatch& dispatch_;
  const std::shared_ptr<HttpSession> session_;
  const std::string address_, roomName_, token_, participant_;
  const std::function<void(const Json&)> deliver_;
  Json::Array outgoing_;
  int64_t after_ = -1;  ///< the last signal that was read; -1: not in the room yet
  bool isAsking_ = false;
  SteadyTime quickUntil_;
  TimerHandle timer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
