#pragma once

#include <chrono>
#include <list>
#include <mutex>

#include "platform/dispatch/dispatch.h"

namespace kestrin::server {

/// The open connections of a server: which of them wait for their client, and for how long.
/// Connections that only wait cost no thread but a place, and there are not many of those: when
/// they run short, whoever has waited longest makes room. Thread-safe.
class Crowd {
 public:
  struct Place {
    int fd = -1;
    SteadyTime since;   ///< of the last step: connected, head of a request arrived, answered
    bool owed = false;  ///< the server owes it an answer
    bool shut = false;
  };
  using Member = std::list<Place>::iterator;

  Crowd(Clock& clock, size_t limit) : clock_(clock), limit_(limit) {}

  Member enter(int fd);
  void leave(Member member);
  /// The client has made its next step.
  void moved(Member member, bool owed);
  /// Breaks off the connections whose client has not made its next step in time, however busily it
  /// sends. False when nobody is left.
  bool shutLate(Duration patience);

 private:
  static void shut(Place& place);

  Clock& clock_;
  const size_t limit_;
  std::mutex mutex_;
  std::list<Place> places_;
};

}  // namespace kestrin::server
