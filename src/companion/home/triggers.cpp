#include "companion/home/triggers.h"

#include "platform/text/text.h"

namespace kestrin::home {
namespace {

constexpr size_t mostEvents = 50, mostUsers = 1000, mostCauses = 500;
constexpr size_t longestTitle = 200;

Json trigger(const std::string& title, const std::string& body, bool important) {
  return Json::object({{"title", title},
                       {"body", body},
                       {"priority", important ? "high" : "normal"},
                       {"audio", important}});
}

std::string minutesText(int64_t minutes) {
  return minutes <= 1 ? "in a minute" : "in " + std::to_string(minutes) + " minutes";
}

}  // namespace

Situation situationIn(const Json& body) {
  Situation situation;
  situation.userId = body.stringAt("user_id", "");
  situation.timeZone = body.stringAt("user_timezone", "");
  situation.unreadMail = body.intAt("unread_email_count").value_or(0);
  for (const Json* event : body.objectsAt("calendar_events")) {
    const auto start = dates::parseIso8601(event->stringAt("start_time", ""));
    if (start && situation.events.size() < mostEvents)
      situation.events.emplace_back(text::prefix(event->stringAt("title", ""), longestTitle),
                                    *start);
  }
  return situation;
}

bool Triggers::first(const std::string& userId, const std::string& cause) {
  if (fired_.size() >= mostUsers && !fired_.contains(userId)) fired_.clear();
  auto& causes = fired_[userId];
  if (causes.size() >= mostCauses) causes.clear();
  return causes.insert(cause).second;
}

Json Triggers::evaluate(const Situation& situation, Date now) {
  Json fired = Json::array();
  for (const auto& [title, start] : situation.events) {
    const auto until = start - now;
    if (until <= until.zero() || until > soon) continue;
    if (!first(situation.userId, "event " + dates::iso8601(start) + title)) continue;
    const auto minutes = std::chrono::ceil<std::chrono::minutes>(until).count();
    fired.push(trigger("Starting soon", title + " starts " + minutesText(minutes) + ".", true));
  }
  const std::string today = dates::format(now, "yyyy-MM-dd", situation.timeZone);
  if (situation.unreadMail >= muchMail && first(situation.userId, "mail " + today)) {
    fired.push(trigger("Unread mail",
                       "You have " + std::to_string(situation.unreadMail) + " unread emails.",
                       false));
  }
  const int hour = std::stoi("0" + dates::format(now, "H", situation.timeZone));
  const auto& last = situation.lastDictation;
  const bool silent = last && now - *last >= longSilence &&
                      dates::format(*last, "yyyy-MM-dd", situation.timeZone) == today;
  if (silent && hour >= workBegins && hour < workEnds &&
      first(situation.userId, "silence " + today))
    fired.push(
        trigger("Still here", "It has been quiet for a while. Is there anything I can do?", false));
  return fired;
}

}  // namespace kestrin::home
