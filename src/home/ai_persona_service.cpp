#include "home/ai_persona_service.h"

#include <algorithm>
#include <array>

#include "platform/text/text.h"

namespace kestrin {
namespace {

struct PartOfDay {
  int from, to;  ///< hours, inclusive
  const char* salutation;
  std::array<const char*, 3> closings;
};
constexpr std::array partsOfDay{
    PartOfDay{
        5,
        11,
        "Good morning",
        {"Ready to start the day?", "What can I help you with?", "I'm here when you need me."}},
    PartOfDay{12,
              16,
              "Good afternoon",
              {"How's your day going?", "What can I help you with?", "Ready when you are."}},
    PartOfDay{17,
              20,
              "Good evening",
              {"Winding down?", "Still working? I'm here to help.", "What can I do for you?"}},
};
constexpr PartOfDay otherHours{
    0, 23, "Hello", {"Working late? I'm still here.", "How can I help?", "Ready when you are."}};

constexpr size_t mostHeadlines = 3;

/// Today's events by their start, and where the upcoming ones begin.
struct Today {
  std::vector<CalendarEvent> events;
  std::vector<CalendarEvent> upcoming;
};

Today todayOf(const std::vector<CalendarEvent>& events, Date now) {
  const DayRange day = dayOf(now);
  Today today;
  for (const CalendarEvent& event : events) {
    if (event.startDate >= day.from && event.startDate < day.to) today.events.push_back(event);
  }
  std::stable_sort(
      today.events.begin(), today.events.end(),
      [](const CalendarEvent& a, const CalendarEvent& b) { return a.startDate < b.startDate; });
  for (const CalendarEvent& event : today.events) {
    if (event.startDate > now) today.upcoming.push_back(event);
  }
  return today;
}

std::string titleAtTime(const CalendarEvent& event) {
  return event.title + " at " + dates::format(event.startDate, "h:mm a") + ".";
}

std::string plural(size_t count, const char* one, const char* several) {
  return count == 1 ? one : several;
}

std::string dailyEvents(const Today& today) {
  const auto& [events, upcoming] = today;
  if (events.empty()) return " Your schedule is clear today — a perfect day for focused work.";
  if (events.size() == 1) {
    if (!upcoming.empty()) return " You have one thing on the calendar: " + titleAtTime(events[0]);
    return " You wrapped up " + events[0].title + " earlier. The rest of the day is yours.";
  }
  if (upcoming.empty()) {
    return " You've completed all " + std::to_string(events.size()) + " events today. Well done.";
  }
  std::string out = " You have " + std::to_string(upcoming.size()) + " " +
                    plural(upcoming.size(), "event", "events") + " ahead.";
  out += " Next up is " + titleAtTime(upcoming[0]);
  if (upcoming.size() > 1) out += " After that, " + titleAtTime(upcoming[1]);
  if (upcoming.size() > 2) out += " Plus " + std::to_string(upcoming.size() - 2) + " more later.";
  return out;
}

std::string latestEvents(const Today& today) {
  const auto& [events, upcoming] = today;
  if (events.empty()) return " Your calendar is clear today.";
  if (upcoming.empty())
    return " You've finished all " + std::to_string(events.size()) + " events today.";
  std::string out = " Next on your calendar is " + titleAtTime(upcoming[0]);
  if (const size_t more = upcoming.size() - 1; more > 0)
    out += " Plus " + std::to_string(more) + " more " + plural(more, "event", "events") + " today.";
  return out;
}

/// The sentence on the newest mail, in double quotes.
std::string subjectSentence(const char* beginning, const std::vector<std::string>& subjects) {
  if (subjects.empty() || subjects[0].empty()) return {};
  return std::string(beginning) + "\"" + subjects[0] + "\".";
}

}  // namespace

std::string AIPersonaService::greeting(const std::string& userName, int hour) {
  const auto found =
      std::find_if(partsOfDay.begin(), partsOfDay.end(),
                   [hour](const PartOfDay& part) { return hour >= part.from && hour <= part.to; });
  const PartOfDay& part = found == partsOfDay.end() ? otherHours : *found;
  // A byte that 255 divides evenly by three gives each closing the same chance.
  unsigned char chance = 255;
  while (chance == 255) chance = static_cast<unsigned char>(random_.bytes(1)[0]);
  std::string out = part.salutation;
  const std::string name = text::trim(userName);
  if (!name.empty()) out += ", " + text::split(name, " ").front();
  return out + ". " + part.closings[chance % part.closings.size()];
}

std::string AIPersonaService::greetingNow(const std::string& userName) {
  return greeting(userName, dates::field(clock_.wallNow(), "H"));
}

std::string AIPersonaService::generateDailyBriefing(
    const std::vector<CalendarEvent>& events, const std::string& userName, int unreadEmailCount,
    const std::vector<std::string>& topEmailSubjects) {
  std::string out = greetingNow(userName) + dailyEvents(todayOf(events, clock_.wallNow()));
  if (unreadEmailCount <= 0) return out;
  out += unreadEmailCount == 1
             ? std::string(" You have 1 unread email.")
             : " You have " + std::to_string(unreadEmailCount) + " unread emails.";
  return out + subjectSentence(" The latest is about ", topEmailSubjects);
}

std::string AIPersonaService::generateLatestBriefing(
    const std::vector<CalendarEvent>& events, const std::string& userName, int unreadEmailCount,
    const std::vector<std::string>& topEmailSubjects, const std::vector<std::string>& newsHeadlines,
    const std::string& weatherSummary) {
  std::string out = greetingNow(userName) + " Here's your latest.";
  if (!weatherSummary.empty()) out += " " + weatherSummary;
  out += latestEvents(todayOf(events, clock_.wallNow()));
  for (size_t i = 0; i < std::min(newsHeadlines.size(), mostHeadlines); ++i)
    out += (i == 0 ? " In the news: " : " Also, ") + newsHeadlines[i] + ".";
  if (unreadEmailCount > 0) {
    out += " You have " + std::to_string(unreadEmailCount) + " unread " +
           plural(size_t(unreadEmailCount), "email", "emails") + ".";
    out += subjectSentence(" The most recent is about ", topEmailSubjects);
  }
  return out + " That's your latest.";
}

}  // namespace kestrin
