#include "platform/linux/file_calendars.h"

#include <algorithm>
#include <filesystem>

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

class FileCalendars final : public Calendars {
 public:
  explicit FileCalendars(Files& files) : files_(files) {}

  Result<std::vector<CalendarRecord>> events(Date from, Date to) override {
    std::vector<CalendarRecord> all;
    size_t calendars = 0;
    for (const auto& folder : {files_.configFolder() + "/kestrin/calendars",
                               files_.dataFolder() + "/evolution/calendar"}) {
      for (const fs::path& path : calendarsBelow(folder)) {
        const auto text = files_.read(path.string());
        if (!text) continue;
        ++calendars;
        for (CalendarRecord& record : readIcalendar(*text, from, to)) {
          if (record.calendarName.empty()) record.calendarName = path.stem().string();
          all.push_back(std::move(record));
        }
      }
    }
    if (calendars == 0) return fail("Calendars", 1, "There is no calendar on this computer");
    return all;
  }

 private:
  Files& files_;
};

}  // namespace

std::unique_ptr<Calendars> makeFileCalendars(Files& files) {
  return std::make_unique<FileCalendars>(files);
}

}  // namespace kestrin
