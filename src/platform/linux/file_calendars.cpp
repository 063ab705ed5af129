#include "platform/linux/file_calendars.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "platform/linux/evolution_sources.h"
#include "platform/linux/icalendar.h"

namespace kestrin {
namespace {

namespace fs = std::filesystem;

/// Every .ics file below, in a fixed order; nothing when the folder is not there.
std::vector<fs::path> calendarsBelow(const std::string& folder) {
  std::vector<fs::path> found;
  std::error_code error;
  for (auto entry = fs::recursive_directory_iterator(folder, error);
       !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
    if (entry->path().extension() == ".ics") found.push_back(entry->path());
    if (entry.depth() > 3) entry.disable_recursion_pending();
  }
  std::sort(found.begin(), found.end());
  return found;
}

/// The calendar that is there from the start has a folder of another name.
std::string sourceOfFolder(const std::string& folder) {
  return folder == "system" ? "system-calendar" : folder;
}

}  // namespace

struct FileCalendars::Reading {
  Date from, to;
  std::vector<CalendarRecord> records;
  size_t calendars = 0;

  /// What the calendar's source says goes before what its file says.
  void add(const std::string& text, const fs::path& path, const EvolutionCalendar& source) {
    ++calendars;
    for (CalendarRecord& record : readIcalendar(text, from, to)) {
      if (!source.name.empty()) record.calendarName = source.name;
      if (!source.color.empty()) record.color = source.color;
      if (record.calendarName.empty()) record.calendarName = path.stem().string();
      records.push_back(std::move(record));
    }
  }
};

Result<std::vector<CalendarRecord>> FileCalendars::events(
    Date from, Date to, const std::optional<std::set<std::string>>& evolution) {
  Reading reading{from, to, {}, 0};
  readOwn(reading);
  readEvolution(reading, evolution);
  if (reading.calendars == 0) return fail("Calendars", 1, "There is no calendar on this computer");
  return std::move(reading.records);
}

void FileCalendars::readOwn(Reading& reading) {
  for (const fs::path& path : calendarsBelow(files_.configFolder() + "/kestrin/calendars")) {
    if (const auto text = files_.read(path.string())) reading.add(*text, path, {});
  }
}

void FileCalendars::readEvolution(Reading& reading,
                                  const std::optional<std::set<std::string>>& wanted) {
  const std::string folder = files_.dataFolder() + "/evolution/calendar";
  const auto paths = calendarsBelow(folder);
  if (paths.empty()) return;
  std::map<std::string, std::string> keyFiles;
  const auto sources = files_.list(files_.configFolder() + "/evolution/sources");
  if (sources) {
    for (const FileInfo& file : *sources) {
      const fs::path path(file.path);
      if (path.extension() != ".source") continue;
      if (auto text = files_.read(file.path)) keyFiles[path.stem().string()] = *std::move(text);
    }
  }
  const auto calendars = evolutionCalendars(keyFiles);
  for (const fs::path& path : paths) {
    const std::string inside = path.lexically_relative(folder).begin()->string();
    const std::string id = sourceOfFolder(inside);
    // What was deleted is kept a while.
    if (inside == "trash" || (wanted && wanted->count(id) == 0)) continue;
    const auto source = calendars.find(id);
    const EvolutionCalendar calendar =
        source == calendars.end() ? EvolutionCalendar{} : source->second;
    if (!calendar.shown) continue;
    if (const auto text = files_.read(path.string())) reading.add(*text, path, calendar);
  }
}

}  // namespace kestrin
