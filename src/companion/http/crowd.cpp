#include "companion/http/crowd.h"

#include <sys/socket.h>

namespace kestrin::server {

Crowd::Member Crowd::enter(int fd) {
  const SteadyTime now = clock_.steadyNow();
  std::lock_guard lock(mutex_);
  const Member member = places_.insert(places_.end(), {fd, now});
  // Some places stay free: one that is shut is given back only a moment later.
  const size_t most = limit_ - limit_ / 8;
  size_t taken = 0;
  Place* longest = nullptr;
  for (Place& place : places_) {
    if (place.shut) continue;
    ++taken;
    const bool waits = !place.owed && &place != &*member;
    if (waits && (longest == nullptr || place.since < longest->since)) longest = &place;
  }
  if (taken > most && longest != nullptr) shut(*longest);
  return member;
}

void Crowd::leave(Member member) {
  std::lock_guard lock(mutex_);
  places_.erase(member);
}

void Crowd::moved(Member member, bool owed) {
  const SteadyTime now = clock_.steadyNow();
  std::lock_guard lock(mutex_);
  member->since = now;
  member->owed = owed;
}

bool Crowd::shutLate(Duration patience) {
  const SteadyTime now = clock_.steadyNow();
  std::lock_guard lock(mutex_);
  for (Place& place : places_) {
    if (!place.owed && !place.shut && now - place.since >= patience) shut(place);
  }
  return !places_.empty();
}

/// Its owner sees the end of it and closes it; until it has left, the number is its own.
void Crowd::shut(Place& place) {
  place.shut = true;
  ::shutdown(place.fd, SHUT_RDWR);
}

}  // namespace kestrin::server
