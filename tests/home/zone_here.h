#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace kestrin::test {

/// The zone of this process for as long as it lives.
struct ZoneHere {
  explicit ZoneHere(const char* zone) { set(zone); }
  ~ZoneHere() { set(before.empty() ? nullptr : before.c_str()); }
  static void set(const char* zone) {
    zone ? setenv("TZ", zone, 1) : unsetenv("TZ");
    tzset();
  }
  const std::string before = getenv("TZ") ? getenv("TZ") : "";
};

}  // namespace kestrin::test
