#include "home/calendar_service.h"

#include <algorithm>

#include "identity/google/google_account.h"
#include "platform/dispatch/background.h"

namespace kestrin {
namespace {

std::string shownTitle(const std::string& title) { return title.empty() ? "Untitled" : title; }

CalendarEvent fromRecord(const CalendarRecord& record) {
  CalendarEvent event;
  event.id = record.id;
  event.title = shownTitle(record.title);
  event.startDate = record.start;
  event.endDate = record.end;
  event.isAllDay = record.allDay;
  if (!record.location.empty()) event.location = record.location;
  if (!record.notes.empty()) event.notes = record.notes;
  if (!record.organizer.empty()) event.organizer = record.organizer;
  event.calendarName = record.calendarName.empty() ? "Calendar" : record.calendarName;
  event.color = record.color;
  return event;
}

struct GoogleTime {
  std::string text;
  bool isDate = false;
};

GoogleTime timeAt(const Json& event, const char* key) {
  if (const auto text = event.stringAt(key)) return {*text, text->size() == 10};
  const Json* time = event.objectAt(key);
  if (!time) return {};
  if (const auto moment = time->stringAt("dateTime")) return {*moment, false};
  return {time->stringAt("date", ""), time->has("date")};
}

std::vector<EventAttendee> attendeesOf(const Json& event) {
  std::vector<EventAttendee> out;
  for (const Json* each : event.objectsAt("attendees")) {
    out.push_back({each->stringAt("email", ""), each->stringAt("name", ""),
                   each->stringAt("status", "needsAction"),
                   each->boolAt("isOrganizer").value_or(false)});
  }
  return out;
}

}  // namespace

std::optional<Date> parseGoogleDate(const std::string& text) {
  if (text.empty()) return std::nullopt;
  // A time without an offset could be meant for any zone.
  if (text.find_first_of("Z+-", std::string_view("yyyy-MM-ddT").size()) != std::string::npos) {
    if (const auto date = dates::parseIso8601(text)) return date;
  }
  for (const char* pattern :
       {"yyyy-MM-dd", "yyyy-MM-dd'T'HH:mm:ssZ", "yyyy-MM-dd'T'HH:mm:ssXXXXX"}) {
    if (const auto date = dates::parse(text, pattern)) return date;
  }
  return std::nullopt;
}

std::vector<CalendarEvent> parseGoogleEvents(const Json& answer,
                                             const std::function<void(std::string)>& print) {
  std::vector<CalendarEvent> out;
  for (const Json* entry : answer.objectsAt("events")) {
    CalendarEvent event;
    event.id = entry->stringAt("id", "");
    if (event.id.empty()) {
      print("⚠️ Event missing id");
      continue;
    }
    event.title = shownTitle(entry->stringAt("summary", ""));
    const GoogleTime start = timeAt(*entry, "start"), end = timeAt(*entry, "end");
    const auto from = parseGoogleDate(start.text), to = parseGoogleDate(end.text);
    if (!from || !to) {
      print("⚠️ Failed to parse dates: start='" + start.text + "' end='" + end.text + "'");
      continue;
    }
    event.startDate = *from;
    event.endDate = *to;
    event.isAllDay = start.isDate;
    event.location = entry->stringAt("location");
    event.notes = entry->stringAt("description");
    event.meetingLink = entry->stringAt("meetingLink");
    event.meetingType = entry->stringAt("meetingType");
    event.dialInInfo = entry->stringAt("dialInInfo");
    event.organizer = entry->stringAt("organizer");
    event.attendees = attendeesOf(*entry);
    event.source = CalendarSource::google;
    event.calendarName = "Google";
    out.push_back(std::move(event));
  }
  return out;
}

/// What both sources have given so far. Main queue.
struct CalendarService::Gathering {
  Date from, to;
  Completion completion;
  int open = 1;
  std::vector<CalendarEvent> events;

  void add(std::vector<CalendarEvent> more) {
    events.insert(events.end(), std::make_move_iterator(more.begin()),
                  std::make_move_iterator(more.end()));
    end();
  }
  void end() {
    if (--open > 0) return;
    std::stable_sort(
        events.begin(), events.end(),
        [](const CalendarEvent& a, const CalendarEvent& b) { return a.startDate < b.startDate; });
    completion(events);
  }
};

CalendarService::CalendarService(Dispatch& dispatch, Http& http, Calendars& calendars,
                                 SettingsStore& settings, Logger& logger, DeviceIdManager& deviceId,
                                 const Endpoints& endpoints)
    : dispatch_(dispatch),
      calendars_(calendars),
      settings_(settings),
      logger_(logger),
      deviceId_(deviceId),
      backend_(endpoints.backend),
      session_(http.makeSession({})) {}

bool CalendarService::hasGoogleCalendar() const {
  const auto account = linkedGoogleAccount(settings_);
  return account && account->mayUse("calendar");
}

void CalendarService::fetchEvents(Completion completion) {
  const DayRange today = dayOf(dispatch_.clock().wallNow());
  fetchEvents(today.from, today.to,
              [this, day = today.from,
               completion = std::move(completion)](const std::vector<CalendarEvent>& events) {
                todayEvents_ = events;
                today_ = day;
                completion(events);
              });
}

void CalendarService::fetchEvents(Date from, Date to, Completion completion) {
  const auto gathering = std::make_shared<Gathering>();
  gathering->from = from;
  gathering->to = to;
  gathering->completion = std::move(completion);
  ++gathering->open;
  fetchLocalEvents(gathering);
  if (hasGoogleCalendar()) {
    ++gathering->open;
    fetchGoogleEvents(gathering);
  }
  dispatch_.mainQueue()->post(lifetime_.guard([gathering] { gathering->end(); }));
}

void CalendarService::fetchLocalEvents(const std::shared_ptr<Gathering>& gathering) {
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&calendars = calendars_, from = gathering->from, to = gathering->to] {
        return calendars.events(from, to);
      },
      [this, gathering](const Result<std::vector<CalendarRecord>>& records) {
        std::vector<CalendarEvent> events;
        if (!std::exchange(hasCheckedAccess_, true)) {
          logger_.print(records ? "📅 Calendar access: granted"
                                : "❌ Calendar access error: " + records.error().description);
        }
        if (records) {
          for (const CalendarRecord& record : *records) events.push_back(fromRecord(record));
        } else {
          logger_.print("⚠️ No calendar access for local events");
        }
        gathering->add(std::move(events));
      });
}

void CalendarService::fetchGoogleEvents(const std::shared_ptr<Gathering>& gathering) {
  const std::string url = backend_ + "/google/calendar/events";
  if (!isHttpUrl(url)) {
    logger_.print("❌ Invalid Google Calendar URL");
    return gathering->end();
  }
  const std::function<void(const std::vector<CalendarEvent>&)> add = lifetime_.guard(
      [gathering](const std::vector<CalendarEvent>& events) { gathering->add(events); });
  // The first reading of the id waits for the disk.
  dispatch_.globalQueue()->post([url, gathering, add, session = session_, &logger = logger_,
                                 &id = deviceId_, main = dispatch_.mainQueue()] {
    const Json body = Json::object({{"device_user_id", id.deviceId()},
                                    {"start_date", dates::iso8601(gathering->from)},
                                    {"end_date", dates::iso8601(gathering->to)}});
    session->data(
        jsonPost(url, body.dump()), [add, main, &logger](const Result<HttpResponse>& response) {
          const auto give = [&](std::vector<CalendarEvent> events) {
            main->post([add, events = std::move(events)] { add(events); });
          };
          if (!response) {
            logger.print("❌ Google Calendar network error: " + response.error().description);
            return give({});
          }
          if (response->body.empty()) {
            logger.print("❌ No data from Google Calendar API");
            return give({});
          }
          logger.print("📅 Google Calendar response: " + response->body);
          const auto answer = Json::parse(response->body);
          const Json* list = answer ? answer->find("events") : nullptr;
          if (!list || !list->isArray()) {
            logger.print("❌ Failed to parse Google Calendar events JSON");
            return give({});
          }
          auto events =
              parseGoogleEvents(*answer, [&](const std::string& line) { logger.print(line); });
          logger.print("📅 Successfully parsed " + std::to_string(events.size()) +
                       " Google Calendar events");
          give(std::move(events));
        });
  });
}

}  // namespace kestrin
