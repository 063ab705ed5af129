#include "notes/history.h"

#include <algorithm>
#include <map>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr int histogramEntries = 100;
/// By then the backend has the record of the dictation that was added.
constexpr std::chrono::milliseconds statsDelay{1500};

std::string dayOf(Date date, std::string_view zone) {
  return dates::format(date, "yyyy-MM-dd", zone);
}

ModeHistogram::Counts byFrequency(const std::map<std::string, int64_t>& counted) {
  ModeHistogram::Counts out(counted.begin(), counted.end());
  std::stable_sort(out.begin(), out.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  return out;
}

}  // namespace

ModeHistogram ModeHistogram::of(const Json::Array& records) {
  std::map<std::string, int64_t> modes;
  std::map<std::string, int64_t> applications;
  for (const Json& record : records) {
    if (const auto mode = record.stringAt("mode")) ++modes[*mode];
    if (const auto application = record.stringAt("appName")) ++applications[*application];
  }
  return {byFrequency(modes), byFrequency(applications)};
}

std::vector<HistoryDay> groupEntriesByDate(const std::vector<HistoryEntry>& entries, Date now,
                                           std::string_view zone) {
  const std::string today = dayOf(now, zone);
  const std::string yesterday = dates::dayBefore(today);
  struct Group {
    std::string day;
    Date newest;
    HistoryDay shown;
  };
  std::vector<Group> groups;
  for (const HistoryEntry& entry : entries) {
    const std::string day = dayOf(entry.timestamp, zone);
    auto group = std::find_if(groups.begin(), groups.end(),
                              [&](const Group& each) { return each.day == day; });
    if (group == groups.end()) {
      const std::string title = day == today ? "Today"
                                : day == yesterday
                                    ? "Yesterday"
                                    : dates::format(entry.timestamp, "MMMM d, yyyy", zone);
      group = groups.insert(groups.end(), {day, entry.timestamp, {title, {}}});
    }
    group->newest = std::max(group->newest, entry.timestamp);
    group->shown.entries.push_back(entry);
  }
  std::stable_sort(groups.begin(), groups.end(),
                   [](const Group& a, const Group& b) { return a.newest > b.newest; });
  std::vector<HistoryDay> days;
  for (Group& group : groups) days.push_back(std::move(group.shown));
  return days;
}

void History::withDeviceId(std::function<void(const std::string&)> job) {
  services_.dispatch.globalQueue()->post(
      [&deviceId = services_.deviceId, job = std::move(job)] { job(deviceId.deviceId()); });
}

void History::addHistoryEntry(const std::string& mode, const std::string& input,
                              const std::string& output, const std::string& appContext) {
  entries_.insert(entries_.begin(), {.id = services_.random.uuid(),
                                     .timestamp = services_.dispatch.clock().wallNow(),
                                     .mode = mode,
                                     .input = input,
                                     .output = output,
                                     .appContext = appContext});
  if (entries_.size() > maxEntries) entries_.resize(maxEntries);
  changed();
  services_.dispatch.mainQueue()->postAfter(statsDelay, lifetime_.guard([this] { fetchStats(); }));
}

void History::fetchStats() {
  auto shown = onMain<Result<UserStats>>(services_.dispatch, lifetime_,
                                         [this](const Result<UserStats>& stats) {
                                           if (!stats) return;
                                           stats_ = *stats;
                                           changed();
                                         });
  withDeviceId([&service = services_.stats, shown = std::move(shown)](const std::string& id) {
    service.fetchStats(id, shown);
  });
}

void History::fetchHistoryFromServer() {
  auto merged = onMain<Result<HistoryAnswer>>(
      services_.dispatch, lifetime_, [this, clears = clears_](const Result<HistoryAnswer>& answer) {
        if (!answer || clears != clears_) return;
        const Date now = services_.dispatch.clock().wallNow();
        std::vector<HistoryEntry> entries;
        for (const Json& record : answer->history) {
          entries.push_back(HistoryEntry::fromServer(record, services_.random.uuid(), now));
        }
        services_.logger.print("📜 Loaded " + std::to_string(entries.size()) +
                               " history entries from server");
        mergeHistory(entries);
      });
  withDeviceId([&service = services_.stats, &logger = services_.logger,
                merged = std::move(merged)](const std::string& id) {
    logger.print("📜 Fetching history for user: " + id);
    service.fetchHistory(id, fetchedEntries, merged);
  });
}

void History::mergeHistory(const std::vector<HistoryEntry>& serverEntries) {
  std::vector<HistoryEntry> result;
  std::set<std::string> seen;
  for (const auto* list : {&std::as_const(entries_), &serverEntries}) {
    for (const HistoryEntry& entry : *list) {
      if (seen.insert(entry.mergeKey()).second) result.push_back(entry);
    }
  }
  std::stable_sort(result.begin(), result.end(), [](const HistoryEntry& a, const HistoryEntry& b) {
    return a.timestamp > b.timestamp;
  });
  entries_ = std::move(result);
  changed();
}

void History::fetchModeHistogram(const std::string& userId) {
  services_.stats.fetchHistory(
      userId, histogramEntries,
      onMain<Result<HistoryAnswer>>(services_.dispatch, lifetime_,
                                    [this](const Result<HistoryAnswer>& answer) {
                                      if (!answer) return;
                                      histogram_ = ModeHistogram::of(answer->history);
                                      changed();
                                    }));
}

void History::clearHistory(std::function<void(Status)> completion) {
  ++clears_;
  entries_.clear();
  expanded_.clear();
  histogram_ = {};
  changed();
  auto ended = onMain<Status>(services_.dispatch, lifetime_,
                              [this, completion = std::move(completion)](const Status& status) {
                                if (!status) {
                                  services_.logger.log(
                                      "History", LogLevel::warning,
                                      "Not deleted at the backend: " + status.error().description);
                                }
                                fetchStats();
                                if (completion) completion(status);
                              });
  withDeviceId([&service = services_.stats, ended = std::move(ended)](const std::string& id) {
    service.deleteHistory(id, ended);
  });
}

std::vector<HistoryEntry> History::found() const {
  const std::string wanted = text::lower(text::trim(searchQuery_));
  std::vector<HistoryEntry> out;
  for (const HistoryEntry& entry : entries_) {
    const auto holds = [&](const std::string& field) {
      return text::contains(text::lower(field), wanted);
    };
    if (wanted.empty() || holds(entry.output) || holds(entry.input) || holds(entry.mode) ||
        holds(entry.appContext)) {
      out.push_back(entry);
    }
  }
  return out;
}

std::vector<HistoryDay> History::groupEntriesByDate(std::string_view zone) const {
  return kestrin::groupEntriesByDate(found(), services_.dispatch.clock().wallNow(), zone);
}

std::vector<std::string> History::emptyText() const {
  if (entries_.empty()) {
    return {"No transcriptions yet", "Hold fn 🌐 to start your first voice command"};
  }
  if (found().empty()) return {"No results for \"" + searchQuery_ + "\""};
  return {};
}

void History::setSearchQuery(const std::string& query) {
  searchQuery_ = query;
  changed();
}

void History::toggleExpanded(const std::string& id) {
  if (expanded_.erase(id) == 0) expanded_.insert(id);
  changed();
}

void History::changed() {
  if (onChange) onChange();
}

}  // namespace kestrin
