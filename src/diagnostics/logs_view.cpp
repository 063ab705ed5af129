#include "diagnostics/logs_view.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t charactersPerLine = 80;
constexpr int lineHeight = 20;
constexpr int leastRowHeight = 24;

/// The first title stands for no level, the others follow the order of the levels.
std::optional<LogLevel> levelAt(int index) {
  if (index < 1 || index >= static_cast<int>(LogsView::levelTitles.size())) return std::nullopt;
  return static_cast<LogLevel>(index - 1);
}

}  // namespace

LogsView::LogsView(Dispatch& dispatch, NotificationCenter& notifications, Logger& logger,
                   Files& files)
    : dispatch_(dispatch), logger_(logger), files_(files) {
  for (const char* name : {"logEntriesBatchAdded", "logEntryAdded", "logsCleared"}) {
    subscriptions_.push_back(
        notifications.observe(name, lifetime_.guard([this](const Json&) { refreshLogs(); })));
  }
}

void LogsView::setFilter(std::string text) {
  filterField_ = std::move(text);
  refreshLogs();
}

void LogsView::setLevelFilter(int index) {
  levelFilter_ = index;
  refreshLogs();
}

std::string LogsView::cell(const LogEntry& entry, size_t column) {
  switch (column) {
    case 0:
      return dates::format(entry.timestamp, "HH:mm:ss.SSS");
    case 1:
      return std::string(logLevelText(entry.level));
    case 2:
      return entry.source;
    default:
      return entry.message;
  }
}

int LogsView::rowHeight(const LogEntry& entry) {
  const bool hasLineEnd = entry.message.find('\n') != std::string::npos;
  const size_t lines =
      text::characterCount(entry.message) / charactersPerLine + (hasLineEnd ? 1 : 0);
  return std::max(leastRowHeight, std::max(1, static_cast<int>(lines)) * lineHeight);
}

void LogsView::refreshLogs() {
  const uint64_t number = ++latestRefresh_;
  const std::function<void(std::vector<LogEntry>)> show =
      lifetime_.guard([this, number](std::vector<LogEntry> entries) {
        if (number != latestRefresh_) return;
        filteredEntries_ = std::move(entries);
        if (onChange) onChange();
      });
  const auto filter = filterField_.empty() ? std::nullopt : std::optional(filterField_);
  dispatch_.globalQueue()->post([&logger = logger_, main = dispatch_.mainQueue(), filter,
                                 level = levelAt(levelFilter_), show] {
    main->post(
        [show, entries = logger.getEntries(filter, level)]() mutable { show(std::move(entries)); });
  });
}

std::string LogsView::suggestedExportName() const {
  return "kestrin-logs-" + dates::format(dispatch_.clock().wallNow(), "yyyy-MM-dd-HHmmss") + ".txt";
}

void LogsView::exportTo(const std::string& path, std::function<void(Status)> onDone) {
  dispatch_.globalQueue()->post([&files = files_, main = dispatch_.mainQueue(), path,
                                 entries = filteredEntries_, onDone = std::move(onDone)] {
    std::string text;
    for (const LogEntry& entry : entries) text += entry.formatted() + "\n";
    main->post([onDone, written = files.writeAtomic(path, text)] { onDone(written); });
  });
}

}  // namespace kestrin
