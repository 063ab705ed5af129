#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"

namespace kestrin::home {

/// What is known of a user's day.
struct Situation {
  std::string userId;
  std::string timeZone;
  std::vector<std::pair<std::string, Date>> events;  ///< title and start
  int64_t unreadMail = 0;
  std::optional<Date> lastDictation;
};
Situation situationIn(const Json& body);

/// All rules by which the assistant speaks first: an appointment within ten minutes (aloud), much
/// unread mail (once a day), a long silence on a day that began with dictations (once a day, in
/// working hours). Each fires once for its cause. Not thread-safe.
class Triggers {
 public:
  static constexpr std::chrono::minutes soon{10};
  /// As much as the application counts: it knows the newest few alone.
  static constexpr int64_t muchMail = 3;
  static constexpr std::chrono::hours longSilence{4};
  static constexpr int workBegins = 9, workEnds = 18;  ///< hours

  /// What fires now, as the application reads it.
  Json evaluate(const Situation& situation, Date now);

 private:
  /// Whether it is the first time.
  bool first(const std::string& userId, const std::string& cause);
  std::map<std::string, std::set<std::string>> fired_;
};

}  // namespace kestrin::home
