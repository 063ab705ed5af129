#include "platform/linux/eds_calendars.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <thread>

#include "platform/linux/descriptor.h"
#include "platform/linux/evolution_sources.h"
#include "platform/linux/icalendar.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

const std::string prefix = "org.gnome.evolution.dataserver.";
const std::string pathPrefix = "/org/gnome/evolution/dataserver/";
/// One that hangs shall not keep the others waiting.
constexpr size_t mostAtOnce = 16;

using Texts = std::vector<std::string>;

/// The name with the highest version after `stem`: "...Calendar8" of "...Calendar"; else empty.
std::string newest(const Texts& names, const std::string& stem) {
  std::optional<int> version;
  for (const std::string& name : names) {
    if (name.compare(0, stem.size(), stem) != 0) continue;
    const std::string rest = name.substr(stem.size());
    if (rest.empty() || rest.size() > 4 || rest.find_first_not_of("0123456789") != rest.npos)
      continue;
    version = std::max(version.value_or(0), std::stoi(rest));
  }
  return version ? stem + std::to_string(*version) : "";
}

std::string quoted(const std::string& words) {
  return '"' + text::replaceAll(text::replaceAll(words, "\\", "\\\\"), "\"", "\\\"") + '"';
}

/// A day or two more on both sides: the server knows nothing of the reader's zone.
std::string overlapping(Date from, Date to) {
  const auto time = [](Date date) {
    return "(make-time \"" + dates::format(date, "yyyyMMdd'T'HHmmss'Z'", "UTC") + "\")";
  };
  return "(occur-in-time-range? " + time(from - std::chrono::days(2)) + " " +
         time(to + std::chrono::days(2)) + ")";
}

/// `work(0)` to `work(count - 1)`, several at a time.
template <class Work>
void sideBySide(size_t count, const Work& work) {
  std::atomic<size_t> next = 0;
  const auto run = [&] {
    for (size_t index = next++; index < count; index = next++) work(index);
  };
  std::vector<std::thread> helpers;
  try {
    while (helpers.size() + 1 < std::min(count, mostAtOnce)) helpers.emplace_back(run);
  } catch (const std::system_error&) {
    // Those that could be started do, with this thread, the work of all.
  }
  run();
  for (std::thread& helper : helpers) helper.join();
}

/// What the server gave: the calendars' events, and which calendars it could not read.
struct Served {
  size_t calendars = 0;
  std::vector<CalendarRecord> records;
  std::set<std::string> unread;
};

/// One reading. Its connection is its own: when that ends, the server closes what was opened over
/// it, also what it opens too late.
class Reading {
 public:
  Reading(std::unique_ptr<dbus::Connection> bus, Duration patience)
      : bus_(std::move(bus)), end_(patience) {}

  /// Nothing without a server that answers.
  std::optional<Served> read(Date from, Date to) {
    if (!findServer()) return std::nullopt;
    const auto sources = keyFiles();
    if (!sources) return std::nullopt;
    Served served;
    std::vector<std::pair<std::string, EvolutionCalendar>> shown;
    for (auto& [id, calendar] : evolutionCalendars(*sources)) {
      if (calendar.shown) shown.emplace_back(id, std::move(calendar));
    }
    std::vector<Result<Texts>> answers(shown.size());
    sideBySide(shown.size(),
               [&](size_t index) { answers[index] = objectsOf(shown[index].first, from, to); });
    for (size_t index = 0; index < shown.size(); ++index) {
      const auto& [id, calendar] = shown[index];
      if (!answers[index]) {
        served.unread.insert(id);
        continue;
      }
      ++served.calendars;
      for (CalendarRecord& record : readIcalendarObjects(*answers[index], from, to)) {
        record.calendarName = calendar.name;
        record.color = calendar.color;
        served.records.push_back(std::move(record));
      }
    }
    return served;
  }

 private:
  /// Where it is neither running nor installed nothing is asked of it. The versions in the names
  /// grow with its releases.
  bool findServer() {
    const dbus::Target daemon{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus"};
    for (const char* list : {"ListNames", "ListActivatableNames"}) {
      const auto names = bus_->call<Texts>(daemon, list, end_.left());
      if (!names) return false;
      if (registry_.empty()) registry_ = newest(*names, prefix + "Sources");
      if (factory_.empty()) factory_ = newest(*names, prefix + "Calendar");
    }
    return !registry_.empty() && !factory_.empty();
  }

  std::optional<std::map<std::string, std::string>> keyFiles() {
    using Properties = std::map<std::string, sdbus::Variant>;
    using Objects = std::map<sdbus::ObjectPath, std::map<std::string, Properties>>;
    auto objects = bus_->call<Objects>(
        {registry_, pathPrefix + "SourceManager", "org.freedesktop.DBus.ObjectManager"},
        "GetManagedObjects", end_.left());
    if (!objects) return std::nullopt;
    std::map<std::string, std::string> out;
    for (auto& [path, interfaces] : *objects) {
      Properties& source = interfaces[prefix + "Source"];
      const auto id = source.find("UID"), data = source.find("Data");
      if (id == source.end() || data == source.end() ||
          !id->second.containsValueOfType<std::string>() ||
          !data->second.containsValueOfType<std::string>())
        continue;
      out[id->second.get<std::string>()] = data->second.get<std::string>();
    }
    return out;
  }

  /// The calendar's events, and the zones that they name.
  Result<Texts> objectsOf(const std::string& id, Date from, Date to) {
    const auto opened = bus_->call<std::tuple<std::string, std::string>>(
        {factory_, pathPrefix + "CalendarFactory", prefix + "CalendarFactory"}, "OpenCalendar",
        end_.left(), id);
    if (!opened) return fail(opened.error());
    const auto& [path, service] = *opened;
    const dbus::Target calendar{service, path, prefix + "Calendar"};
    if (auto ready = bus_->call(calendar, "Open", end_.left()); !ready) return fail(ready.error());
    auto objects = bus_->call<Texts>(calendar, "GetObjectList", end_.left(), overlapping(from, to));
    if (!objects) return objects;
    if (const auto series = needs(*objects).series; !series.empty()) {
      // Of an instance that was moved out of the range the answer does not tell, and it would stand
      // where it was.
      std::string query = "(or";
      for (const std::string& uid : series) query += " (uid? " + quoted(uid) + ")";
      auto whole = bus_->call<Texts>(calendar, "GetObjectList", end_.left(), query + ")");
      if (!whole) return whole;
      objects->insert(objects->end(), whole->begin(), whole->end());
    }
    for (const std::string& zone : needs(*objects).zones) {
      auto meaning = bus_->call<std::string>(calendar, "GetTimezone", end_.left(), zone);
      // One that the server does not know has its usual meaning.
      if (!meaning && meaning.error().code != dbus::refused) return fail(meaning.error());
      if (meaning) objects->push_back(*std::move(meaning));
    }
    return objects;
  }

  /// One at a time: the library shares its zones among its users.
  IcalendarNeeds needs(const Texts& objects) {
    const std::lock_guard lock(parsing_);
    return needsOf(objects);
  }

  const std::unique_ptr<dbus::Connection> bus_;
  const Deadline end_;
  std::string registry_, factory_;
  std::mutex parsing_;
};

}  // namespace

Result<std::vector<CalendarRecord>> EdsCalendars::events(Date from, Date to) {
  std::optional<Served> served;
  if (auto bus = connect_()) served = Reading(std::move(*bus), patience_).read(from, to);
  if (!served) return files_.events(from, to);
  auto records = files_.events(from, to, served->unread);
  if (!records && served->calendars == 0) return records;
  if (records) std::move(records->begin(), records->end(), std::back_inserter(served->records));
  return std::move(served->records);
}

}  // namespace kestrin
