#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/lifetime.h"
#include "platform/notification_center.h"

namespace kestrin {

/// The logs page: the entries that pass a text filter and a least level. Main queue only; entries
/// are fetched on a background queue.
class LogsView {
 public:
  static constexpr const char* title = "📋 Application Logs";
  static constexpr const char* filterPlaceholder = "Filter logs...";
  static constexpr std::array<const char*, 5> levelTitles{"All Levels", "DEBUG+", "INFO+", "WARN+",
                                                          "ERROR"};
  static constexpr const char* autoScrollTitle = "Auto-scroll";
  static constexpr const char* exportTitle = "Export";
  static constexpr const char* clearTitle = "Clear";
  struct Column {
    const char* id;
    const char* title;
  };
  static constexpr std::array<Column, 4> columns{
      Column{"time", "Time"}, {"level", "Level"}, {"source", "Source"}, {"message", "Message"}};

  LogsView(Dispatch& dispatch, NotificationCenter& notifications, Logger& logger, Files& files);

  void setFilter(std::string text);
  /// Index into `levelTitles`.
  void setLevelFilter(int index);
  void setAutoScrolling(bool on) { isAutoScrolling_ = on; }

  const std::string& filter() const { return filterField_; }
  int levelFilter() const { return levelFilter_; }
  bool isAutoScrolling() const { return isAutoScrolling_; }
  const std::vector<LogEntry>& filteredEntries() const { return filteredEntries_; }
  /// The text under one of `columns`.
  static std::string cell(const LogEntry& entry, size_t column);
  /// In points: 20 for each line that the message takes, at least 24.
  static int rowHeight(const LogEntry& entry);

  /// Fetches the entries again. Only the latest of several fetches under way is shown.
  void refreshLogs();
  void clear() { logger_.clear(); }

  std::string suggestedExportName() const;
  /// Writes the entries shown, one line each; `onDone` runs on the main queue.
  void exportTo(const std::string& path, std::function<void(Status)> onDone);

  /// The entries were replaced; with `isAutoScrolling` the last row is to be shown.
  std::function<void()> onChange;

 private:
  Dispatch& dispatch_;
  Logger& logger_;
  Files& files_;
  std::string filterField_;
  int levelFilter_ = 0;
  bool isAutoScrolling_ = true;
  std::vector<LogEntry> filteredEntries_;
  uint64_t latestRefresh_ = 0;
  std::vector<SubscriptionHandle> subscriptions_;
  Lifetime lifetime_;
};

}  // namespace kestrin
