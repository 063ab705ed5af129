#include "app/home.h"

#include <iostream>

#include "cli/commands.h"
#include "cli/live_printer.h"
#include "cli/printable.h"
#include "platform/linux/linux_platform.h"

namespace kestrin::cli {
namespace {

/// The services of one command on the main loop.
struct Running {
  Running() : core(backends.platform(), Endpoints::fromEnvironment()) {
    core.logger.setSink(
        [](std::string_view line) { std::cerr << printable(std::string(line)) << std::endl; });
    home.emplace(core, nullptr, "the hold key", std::function<std::vector<VoiceNote>()>{});
  }
  ~Running() {
    home.reset();
    backends.endJobs();
  }
  int run(std::function<void()> job) {
    backends.platform().dispatch.mainQueue()->post(std::move(job));
    return backends.mainLoop().run();
  }
  void quit(int status) { backends.mainLoop().quit(status); }

  LinuxPlatform backends{tell};
  CoreServices core;
  std::optional<Home> home;
};

Json eventJson(const CalendarEvent& event) {
  Json out = Json::object({{"event", "appointment"},
                           {"title", event.title},
                           {"start", dates::iso8601(event.startDate)},
                           {"end", dates::iso8601(event.endDate)},
                           {"all_day", event.isAllDay},
                           {"calendar", event.calendarName}});
  if (event.location) out.set("location", *event.location);
  return out;
}

void printAgenda(const std::vector<CalendarEvent>& events) {
  std::string day;
  for (const CalendarEvent& event : events) {
    const std::string its = dates::format(event.startDate, "EEEE, d MMMM");
    if (its != day) std::cout << (day.empty() ? "" : "\n") << its << "\n";
    day = its;
    std::string time = event.timeString();
    time.resize(std::max<size_t>(time.size(), 10), ' ');
    std::cout << "  " << time << printable(event.title);
    if (!event.isAllDay) std::cout << "  (" << event.durationString() << ")";
    if (event.location) std::cout << "  " << printable(*event.location);
    std::cout << "\n";
  }
  if (events.empty()) std::cout << "No appointments\n";
  std::cout << std::flush;
}

}  // namespace

int briefing(bool speak) {
  Running running;
  HomeCaches& caches = running.home->caches();
  return running.run([&, speak] {
    caches.refreshNewsCache([&, speak] {
      caches.refreshLatestBriefingCache([&, speak] {
        std::cout << printable(caches.cachedLatestBriefingText()) << std::endl;
        if (!speak) return running.quit(done);
        running.home->speech().speakText(caches.cachedLatestBriefingText(), [&](bool spoken) {
          running.quit(spoken ? done : failed);
        });
      });
    });
  });
}

int agenda(const AgendaOptions& options) {
  Running running;
  return running.run([&] {
    const DayRange today = dayOf(running.core.platform.dispatch.clock().wallNow());
    const Date to =
        dayOf(today.from + std::chrono::hours(24 * options.days) - std::chrono::hours(12)).to;
    running.home->calendar().fetchEvents(today.from, to,
                                         [&](const std::vector<CalendarEvent>& events) {
                                           if (options.json) {
                                             for (const CalendarEvent& event : events)
                                               std::cout << eventJson(event).dump() << std::endl;
                                           } else {
                                             printAgenda(events);
                                           }
                                           running.quit(done);
                                         });
  });
}

}  // namespace kestrin::cli
