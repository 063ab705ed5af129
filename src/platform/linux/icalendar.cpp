#include "platform/linux/icalendar.h"

#include <algorithm>
#include <libical/ical.h>
#include <map>
#include <memory>
#include <set>
#include <unicode/timezone.h>

#include "platform/text/text.h"

namespace kestrin {
namespace {

using Component = std::unique_ptr<icalcomponent, decltype(&icalcomponent_free)>;

constexpr size_t largestFile = 32u << 20;
constexpr time_t secondsOfADay = 24 * 60 * 60;

std::string textOf(const char* text) { return text::replaceInvalidUtf8(text ? text : ""); }

/// "W. Europe Standard Time" to "Europe/Berlin"; empty when it is no such name.
std::string zoneOfWindowsName(const std::string& name) {
  UErrorCode status = U_ZERO_ERROR;
  icu::UnicodeString id;
  icu::TimeZone::getIDForWindowsID(icu::UnicodeString::fromUTF8(name), nullptr, id, status);
  std::string out;
  if (U_SUCCESS(status)) id.toUTF8String(out);
  return out;
}

template <class Visit>
void eachEvent(icalcomponent* calendar, const Visit& visit) {
  for (icalcomponent* event = icalcomponent_get_first_component(calendar, ICAL_VEVENT_COMPONENT);
       event; event = icalcomponent_get_next_component(calendar, ICAL_VEVENT_COMPONENT))
    visit(event);
}

std::set<std::string> zonesNamedIn(icalcomponent* calendar) {
  std::set<std::string> named;
  eachEvent(calendar, [&](icalcomponent* event) {
    for (icalproperty* property = icalcomponent_get_first_property(event, ICAL_ANY_PROPERTY);
         property; property = icalcomponent_get_next_property(event, ICAL_ANY_PROPERTY)) {
      icalparameter* zone = icalproperty_get_first_parameter(property, ICAL_TZID_PARAMETER);
      if (zone && icalparameter_get_tzid(zone)) named.insert(icalparameter_get_tzid(zone));
    }
  });
  return named;
}

/// Zones that a file names without saying what they are get their usual meaning.
void completeZones(icalcomponent* calendar) {
  for (const std::string& name : zonesNamedIn(calendar)) {
    if (icalcomponent_get_timezone(calendar, name.c_str())) continue;
    icaltimezone* known = icaltimezone_get_builtin_timezone(name.c_str());
    if (!known) known = icaltimezone_get_builtin_timezone(zoneOfWindowsName(name).c_str());
    icalcomponent* meaning = known ? icaltimezone_get_component(known) : nullptr;
    if (!meaning) continue;
    icalcomponent* copy = icalcomponent_new_clone(meaning);
    if (icalproperty* id = icalcomponent_get_first_property(copy, ICAL_TZID_PROPERTY))
      icalproperty_set_tzid(id, name.c_str());
    icalcomponent_add_component(calendar, copy);
  }
}

/// The same clock time in the reader's zone: whole days and times without a zone are everybody's
/// own.
Date inZone(time_t clockTimeAsUtc, const std::string& zone) {
  const Date utc = dates::fromSeconds(clockTimeAsUtc);
  const std::string words = dates::format(utc, "yyyy-MM-dd HH:mm:ss", "UTC");
  if (const auto local = dates::parse(words, "yyyy-MM-dd HH:mm:ss", zone)) return *local;
  // A time that the clocks skip is as long after the last hour that they show.
  const auto before =
      dates::parse(dates::format(utc - std::chrono::hours(1), "yyyy-MM-dd HH:mm:ss", "UTC"),
                   "yyyy-MM-dd HH:mm:ss", zone);
  return before.value_or(utc) + std::chrono::hours(1);
}

/// Reads the events of one calendar.
class Reader {
 public:
  Reader(Date from, Date to, const std::string& zone) : from_(from), to_(to), zone_(zone) {}

  void read(icalcomponent* calendar) {
    completeZones(calendar);
    name_ = propertyText(calendar, "X-WR-CALNAME");
    color_ = propertyText(calendar, "X-APPLE-CALENDAR-COLOR");
    std::vector<icalcomponent*> events;
    eachEvent(calendar, [&](icalcomponent* event) {
      events.push_back(event);
      if (icalproperty* which =
              icalcomponent_get_first_property(event, ICAL_RECURRENCEID_PROPERTY)) {
        const icaltimetype time = icalproperty_get_datetime_with_component(which, event);
        moved_[textOf(icalcomponent_get_uid(event))].insert(
            icaltime_as_timet_with_zone(time, time.zone));
      }
    });
    for (icalcomponent* event : events) addEvent(event);
  }

  std::vector<CalendarRecord> found;

 private:
  static std::string propertyText(icalcomponent* component, const std::string& name) {
    for (icalproperty* property = icalcomponent_get_first_property(component, ICAL_X_PROPERTY);
         property; property = icalcomponent_get_next_property(component, ICAL_X_PROPERTY)) {
      const char* found = icalproperty_get_x_name(property);
      if (found && name == found) return textOf(icalproperty_get_x(property));
    }
    return {};
  }

  /// A rule that fires every second or minute is nobody's appointment, and would never end.
  static bool hasSaneRules(icalcomponent* event) {
    for (icalproperty* rule = icalcomponent_get_first_property(event, ICAL_RRULE_PROPERTY); rule;
         rule = icalcomponent_get_next_property(event, ICAL_RRULE_PROPERTY)) {
      const auto frequency = icalproperty_get_rrule(rule).freq;
      if (frequency == ICAL_SECONDLY_RECURRENCE || frequency == ICAL_MINUTELY_RECURRENCE ||
          frequency == ICAL_NO_RECURRENCE) {
        return false;
      }
    }
    return true;
  }

  void addEvent(icalcomponent* event) {
    const icaltimetype start = icalcomponent_get_dtstart(event);
    if (icaltime_is_null_time(start) || !icaltime_is_valid_time(start) || start.year < 1900 ||
        start.year > 2200 || icalcomponent_get_status(event) == ICAL_STATUS_CANCELLED ||
        !hasSaneRules(event)) {
      return;
    }
    base_ = CalendarRecord{};
    base_.id = textOf(icalcomponent_get_uid(event));
    base_.title = textOf(icalcomponent_get_summary(event));
    base_.location = textOf(icalcomponent_get_location(event));
    base_.notes = textOf(icalcomponent_get_description(event));
    base_.calendarName = name_;
    base_.color = color_;
    if (icalproperty* who = icalcomponent_get_first_property(event, ICAL_ORGANIZER_PROPERTY))
      base_.organizer = text::replaceAll(textOf(icalproperty_get_organizer(who)), "mailto:", "");
    base_.allDay = start.is_date;
    ownClock_ = start.is_date || (!start.zone && !icaltime_is_utc(start));
    isMoved_ = icalcomponent_get_first_property(event, ICAL_RECURRENCEID_PROPERTY) != nullptr;
    // A day more on both sides: the library knows nothing of the reader's zone.
    const auto around = [](Date date, int days) {
      return icaltime_from_timet_with_zone(
          std::chrono::system_clock::to_time_t(date + std::chrono::days(days)), 0,
          icaltimezone_get_utc_timezone());
    };
    icalcomponent_foreach_recurrence(
        event, around(from_, -2), around(to_, 2),
        [](icalcomponent*, icaltime_span* span, void* self) {
          static_cast<Reader*>(self)->addInstance(*span);
        },
        this);
  }

  void addInstance(const icaltime_span& span) {
    if (found.size() >= mostInstances) return;
    if (!isMoved_) {
      const auto moved = moved_.find(base_.id);
      if (moved != moved_.end() && moved->second.contains(span.start)) return;
    }
    CalendarRecord record = base_;
    record.start = ownClock_ ? inZone(span.start, zone_) : dates::fromSeconds(span.start);
    record.end = ownClock_ ? inZone(span.end, zone_) : dates::fromSeconds(span.end);
    // The library ends whole days a second before the midnight after the last one.
    if (record.allDay) record.end = inZone(span.end + 1 - secondsOfADay, zone_);
    if (record.allDay && record.end <= record.start)
      record.end = inZone(span.start + secondsOfADay, zone_);
    record.end = std::max(record.end, record.start);
    const bool overlaps = record.start < to_ && (record.end > from_ || record.start >= from_);
    if (overlaps) found.push_back(std::move(record));
  }

  const Date from_, to_;
  const std::string zone_;
  std::string name_, color_;
  std::map<std::string, std::set<time_t>> moved_;
  CalendarRecord base_;
  bool ownClock_ = false, isMoved_ = false;
};

/// The pieces' events and zones in one calendar.
class Gathering {
 public:
  explicit Gathering(const std::vector<std::string>& objects)
      : whole_(icalcomponent_new(ICAL_VCALENDAR_COMPONENT), &icalcomponent_free) {
    for (const std::string& object : objects) {
      if (object.size() > largestFile) continue;
      const Component piece(icalparser_parse_string(object.c_str()), &icalcomponent_free);
      if (piece) add(piece.get());
    }
  }
  icalcomponent* calendar() const { return whole_.get(); }

 private:
  void add(icalcomponent* piece) {
    const icalcomponent_kind kind = icalcomponent_isa(piece);
    if (kind == ICAL_VTIMEZONE_COMPONENT || (kind == ICAL_VEVENT_COMPONENT && isNew(piece)))
      icalcomponent_add_component(whole_.get(), icalcomponent_new_clone(piece));
    if (kind != ICAL_VCALENDAR_COMPONENT && kind != ICAL_XROOT_COMPONENT) return;
    for (icalcomponent* each = icalcomponent_get_first_component(piece, ICAL_ANY_COMPONENT); each;
         each = icalcomponent_get_next_component(piece, ICAL_ANY_COMPONENT))
      add(each);
  }

  bool isNew(icalcomponent* event) {
    icalproperty* instance = icalcomponent_get_first_property(event, ICAL_RECURRENCEID_PROPERTY);
    const char* which = instance ? icalproperty_as_ical_string(instance) : "";
    const std::string uid = textOf(icalcomponent_get_uid(event));
    return uid.empty() || seen_.insert({uid, textOf(which)}).second;
  }

  const Component whole_;
  std::set<std::pair<std::string, std::string>> seen_;
};

}  // namespace

IcalendarNeeds needsOf(const std::vector<std::string>& objects) {
  const Gathering pieces(objects);
  IcalendarNeeds needs{{}, zonesNamedIn(pieces.calendar())};
  eachEvent(pieces.calendar(), [&](icalcomponent* event) {
    if (icalcomponent_get_first_property(event, ICAL_RRULE_PROPERTY) ||
        icalcomponent_get_first_property(event, ICAL_RDATE_PROPERTY))
      needs.series.insert(textOf(icalcomponent_get_uid(event)));
  });
  return needs;
}

std::vector<CalendarRecord> readIcalendarObjects(const std::vector<std::string>& objects, Date from,
                                                 Date to, const std::string& zone) {
  const Gathering pieces(objects);
  Reader reader(from, to, zone);
  reader.read(pieces.calendar());
  return std::move(reader.found);
}

std::vector<CalendarRecord> readIcalendar(std::string_view text, Date from, Date to,
                                          const std::string& zone) {
  if (text.size() > largestFile) return {};
  const std::string whole(text);
  const Component root(icalparser_parse_string(whole.c_str()), &icalcomponent_free);
  if (!root) return {};
  Reader reader(from, to, zone);
  if (icalcomponent_isa(root.get()) == ICAL_VCALENDAR_COMPONENT) reader.read(root.get());
  for (icalcomponent* each =
           icalcomponent_get_first_component(root.get(), ICAL_VCALENDAR_COMPONENT);
       each; each = icalcomponent_get_next_component(root.get(), ICAL_VCALENDAR_COMPONENT)) {
    reader.read(each);
  }
  return std::move(reader.found);
}

}  // namespace kestrin
