#include "notes/history.h"

#include <algorithm>
#include <iostream>

#include "cli/commands.h"
#include "cli/printable.h"
#include "platform/linux/linux_platform.h"
#include "platform/text/text.h"

namespace kestrin::cli {
namespace {

constexpr size_t indentation = 9;  // of a text below its "  HH:mm  "

void warn(const std::string& line) { std::cerr << "kestrin: " << line << std::endl; }

std::string indented(const std::string& words) {
  const std::string margin(indentation, ' ');
  return margin + text::replaceAll(text::trim(words), "\n", "\n" + margin);
}

void print(const HistoryEntry& entry) {
  std::string head = "  " + dates::format(entry.timestamp, "HH:mm") + "  " + entry.mode;
  if (!entry.appContext.empty()) head += " · " + entry.appContext;
  std::cout << printable(head) << "\n"
            << indented(printable(entry.output.empty() ? entry.input : entry.output)) << "\n";
}

void print(const std::vector<HistoryDay>& days) {
  for (const HistoryDay& day : days) {
    if (&day != &days.front()) std::cout << "\n";
    std::cout << day.title << "\n";
    for (const HistoryEntry& entry : day.entries) print(entry);
  }
  if (days.empty()) warn("the history is empty");
}

/// The newest `limit` entries, or the reason why there are none to be had.
Result<std::vector<HistoryEntry>> fetch(LinuxPlatform& backends, StatsService& stats,
                                        const std::string& userId, int limit) {
  Result<HistoryAnswer> answer = fail("StatsService", 0, "The backend did not answer");
  // Never less than the application asks for, since the answer replaces the kept one.
  stats.fetchHistory(userId, std::max(limit, History::fetchedEntries),
                     [&](Result<HistoryAnswer> result) {
                       answer = std::move(result);
                       backends.mainLoop().quit(done);
                     });
  backends.mainLoop().run();
  backends.endJobs();
  if (!answer) return fail(answer.error());
  if (answer->cachedBecause) {
    warn("the backend gave no history (" + answer->cachedBecause->description +
         "); this is what this machine kept of it");
  }
  auto& platform = backends.platform();
  std::vector<HistoryEntry> entries;
  for (const Json& record : answer->history) {
    entries.push_back(HistoryEntry::fromServer(record, platform.random.uuid(),
                                               platform.dispatch.clock().wallNow()));
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& a, const auto& b) { return a.timestamp > b.timestamp; });
  if (entries.size() > size_t(limit)) entries.resize(size_t(limit));
  return entries;
}

}  // namespace

int history(const HistoryOptions& options) {
  LinuxPlatform backends(warn);
  auto& platform = backends.platform();
  Logger logger(platform.dispatch, platform.notifications);
  logger.setSink([](std::string_view line) { std::cerr << line << std::endl; });
  LocalCache cache(platform.files, logger);
  StatsService stats(platform.http, logger, cache, Endpoints::fromEnvironment());
  DeviceIdManager deviceId(platform.files, platform.settings, platform.random);
  const auto entries = fetch(backends, stats, deviceId.deviceId(), options.limit);
  if (!entries) {
    warn("the backend gave no history (" + entries.error().description +
         "), and this machine kept none");
    return failed;
  }
  if (!options.json) {
    print(groupEntriesByDate(*entries, platform.dispatch.clock().wallNow()));
    return done;
  }
  for (const HistoryEntry& entry : *entries) std::cout << entry.toJson().dump() << "\n";
  return done;
}

}  // namespace kestrin::cli
