#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "diagnostics/logger.h"
#include "identity/device_id_manager.h"
#include "notes/history_entry.h"
#include "notes/stats_service.h"
#include "notes/user_stats.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The entries of one day of the calendar.
struct HistoryDay {
  std::string title;  ///< "Today", "Yesterday", "March 1, 2026"
  std::vector<HistoryEntry> entries;
};

/// By day of the time zone (empty: the system's), in order of each day's newest entry; a day keeps
/// the order of `entries`.
std::vector<HistoryDay> groupEntriesByDate(const std::vector<HistoryEntry>& entries, Date now,
                                           std::string_view zone = {});

/// How often each mode and each application occurs, most frequent first.
struct ModeHistogram {
  using Counts = std::vector<std::pair<std::string, int64_t>>;
  Counts modes;
  Counts applications;

  static ModeHistogram of(const Json::Array& records);
  bool isEmpty() const { return modes.empty() && applications.empty(); }
  /// What stands in the place of an empty one.
  static constexpr const char* emptyText = "No usage data yet";
};

/// The voice history as the main window shows it: what this run has added, merged with what the
/// backend keeps, and the statistics. Main queue only.
class History {
 public:
  static constexpr size_t maxEntries = 50;
  static constexpr int fetchedEntries = 50;

  /// All of these must outlive every background job.
  struct Services {
    Dispatch& dispatch;
    Random& random;
    Logger& logger;
    DeviceIdManager& deviceId;
    StatsService& stats;
  };
  explicit History(Services services) : services_(services) {}

  /// Puts a new entry at the head and cuts the list to `maxEntries`; asks for the statistics again
  /// once the backend has the record.
  void addHistoryEntry(const std::string& mode, const std::string& input, const std::string& output,
                       const std::string& appContext);
  void fetchHistoryFromServer();
  /// The entries there are win over the server's copies of them. Newest first, without a limit.
  void mergeHistory(const std::vector<HistoryEntry>& serverEntries);
  void fetchStats();
  void fetchModeHistogram(const std::string& userId);
  /// Deletes it here, in the cache and at the backend. `completion` (may be empty) gets the
  /// outcome of the latter two.
  void clearHistory(std::function<void(Status)> completion = {});

  /// What the search leaves, by day of the time zone (empty: the system's).
  std::vector<HistoryDay> groupEntriesByDate(std::string_view zone = {}) const;
  /// The lines to show when no day is left; none when there is something to show.
  std::vector<std::string> emptyText() const;
  /// Searches mode, input, output and application, in any case; blank shows all.
  void setSearchQuery(const std::string& query);
  void toggleExpanded(const std::string& id);

  const std::vector<HistoryEntry>& historyEntries() const { return entries_; }
  const std::string& historySearchQuery() const { return searchQuery_; }
  const std::set<std::string>& expandedHistoryEntries() const { return expanded_; }
  const UserStats& currentStats() const { return stats_; }
  const ModeHistogram& modeHistogram() const { return histogram_; }

  /// After every change; a view redraws.
  std::function<void()> onChange;

 private:
  std::vector<HistoryEntry> found() const;
  /// Runs `job` with the device's id off the main queue, since its first reading waits for the
  /// disk.
  void withDeviceId(std::function<void(const std::string&)> job);
  void changed();

  const Services services_;
  std::vector<HistoryEntry> entries_;
  std::string searchQuery_;
  std::set<std::string> expanded_;
  UserStats stats_;
  ModeHistogram histogram_;
  int clears_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
