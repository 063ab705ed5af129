#include "diagnostics/log_file_redirector.h"

#include <chrono>

namespace kestrin {
namespace {

std::string folderOf(Files& files) { return files.dataFolder() + "/Kestrin/Logs"; }

/// The same time of day in the user's zone, so that a change of the clocks moves nothing; whole
/// seconds, as far as a file's time can be trusted.
Date daysBefore(Date now, int days) {
  constexpr const char* pattern = "yyyy-MM-dd HH:mm:ss";
  // What the user's clock shows, counted as a time without changes of the clocks.
  const auto shown = dates::parse(dates::format(now, pattern), pattern, "UTC");
  const auto then =
      shown ? dates::parse(dates::format(*shown - std::chrono::days(days), pattern, "UTC"), pattern)
            : std::nullopt;
  // An hour that the clocks skipped on that day is no time.
  return then.value_or(std::chrono::floor<std::chrono::seconds>(now) - std::chrono::days(days));
}

}  // namespace

std::string LogFileRedirector::path(Files& files, Date day) {
  return folderOf(files) + "/" + dates::format(day, "yyyy-MM-dd") + ".log";
}

void LogFileRedirector::start() {
  if (started_) return;
  started_ = true;
  const auto file = path(files_, dispatch_.clock().wallNow());
  if (const auto redirected = redirect(file); !redirected) {
    logger_.print("⚠️ Failed to start LogFileRedirector: " + redirected.error().description);
    return;
  }
  logger_.print("🗂️ Logging redirected to: " + file);
}

Status LogFileRedirector::redirect(const std::string& path) {
  const auto folder = folderOf(files_);
  if (const auto made = files_.createFolders(folder); !made) return made;
  cleanupOldLogs(folder);
  return streams_.redirectOriginals(path);
}

/// Failures are of no consequence: the next start tries again.
void LogFileRedirector::cleanupOldLogs(const std::string& folder) {
  const Date limit = daysBefore(dispatch_.clock().wallNow(), daysKept);
  const auto files = files_.list(folder);
  if (!files) return;
  for (const FileInfo& file : *files) {
    if (!file.isRegularFile || file.modified >= limit) continue;
    [[maybe_unused]] const Status removed = files_.remove(file.path);
  }
}

}  // namespace kestrin
