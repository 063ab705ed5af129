#include "companion/backend/store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <algorithm>
#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <sqlite3.h>
#include <sstream>
#include <unistd.h>

#include "companion/backend/database.h"
#include "companion/backend/schema.h"

namespace kestrin::backend {

namespace {

constexpr int busyMilliseconds = 2000;
constexpr int64_t millisecondsPerMinute = 60'000;

/// A length that no recording has would spoil the sums.
constexpr int64_t longestAudio = 24 * 60 * millisecondsPerMinute;
/// Deleted texts leave no trace in the file's free pages.
constexpr const char* connectionPragmas = "PRAGMA journal_mode = WAL; PRAGMA secure_delete = ON;";

int64_t wordCount(const std::string& text) {
  std::istringstream words(text);
  int64_t count = 0;
  for (std::string word; words >> word;) ++count;
  return count;
}

std::string dayOf(Date date, const std::string& zone) {
  return dates::format(date, "yyyy-MM-dd", zone);
}

/// Where clocks go forward at midnight the day begins at one o'clock.
Date startOf(const std::string& day, const std::string& zone, Date fallback) {
  for (const char* hour : {" 00", " 01", " 02"}) {
    if (const auto start = dates::parse(day + hour, "yyyy-MM-dd HH", zone)) return *start;
  }
  return fallback;
}

}  // namespace

Store::Store(std::shared_ptr<Database> database) : database_(std::move(database)) {}
Store::Store(Store&&) noexcept = default;
Store::~Store() = default;

Result<Store> Store::open(const std::string& path) {
  return guarded([&]() -> Result<Store> {
    std::error_code ignored;
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (std::filesystem::create_directories(folder, ignored)) {
      std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ignored);
    }
    // Made here, because the library would make it readable for others; its side files follow this
    // mode.
    const int fd = ::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) return fail("Store", SQLITE_CANTOPEN, "Cannot open " + path);
    ::close(fd);
    auto database = std::make_shared<Database>(path, SQLite::OPEN_READWRITE, busyMilliseconds);
    database->exec(connectionPragmas);
    migrate(*database);
    return Store(std::move(database));
  });
}

Status Store::add(const Dictation& dictation) {
  return guarded([&]() -> Status {
    SQLite::Statement insert(*database_,
                             "INSERT INTO dictation VALUES(NULL,?,?,?,?,?,?,?,?,?,?,?)");
    insert.bind(1, dictation.userId);
    insert.bind(2, milliseconds(dictation.at));
    insert.bind(3, dictation.mode);
    insert.bind(4, dictation.transcript);
    insert.bind(5, dictation.processedText);
    insert.bind(6, dictation.appName);
    insert.bind(7, dictation.autoDetected ? 1 : 0);
    insert.bind(8, dictation.success ? 1 : 0);
    insert.bind(9, std::clamp<int64_t>(dictation.audioMilliseconds, 0, longestAudio));
    insert.bind(10, wordCount(dictation.transcript));
    insert.bind(11, wordCount(dictation.processedText));
    insert.exec();
    return {};
  });
}

Result<std::vector<Dictation>> Store::history(const std::string& userId, int64_t limit) {
  return guarded([&]() -> Result<std::vector<Dictation>> {
    SQLite::Statement rows(
        *database_,
        "SELECT id, at, mode, transcript, processed_text, app_name, auto_detected, "
        "success, audio_ms FROM dictation WHERE user_id = ? "
        "ORDER BY at DESC, id DESC LIMIT ?");
    rows.bind(1, userId);
    rows.bind(2, std::max<int64_t>(limit, 0));
    std::vector<Dictation> found;
    while (rows.executeStep()) {
      found.push_back({rows.getColumn(0).getInt64(), userId, dateOf(rows.getColumn(1).getInt64()),
                       rows.getColumn(2).getString(), rows.getColumn(3).getString(),
                       rows.getColumn(4).getString(), rows.getColumn(5).getString(),
                       rows.getColumn(6).getInt() != 0, rows.getColumn(7).getInt() != 0,
                       rows.getColumn(8).getInt64()});
    }
    return found;
  });
}

Status Store::clearHistory(const std::string& userId) {
  return guarded([&]() -> Status {
    SQLite::Statement remove(*database_, "DELETE FROM dictation WHERE user_id = ?");
    remove.bind(1, userId);
    remove.exec();
    // The journal still holds what was deleted.
    database_->exec("PRAGMA wal_checkpoint(TRUNCATE)");
    return {};
  });
}

Result<std::optional<Date>> Store::firstDictation(const std::string& userId) {
  return guarded([&]() -> Result<std::optional<Date>> {
    SQLite::Statement first(*database_, "SELECT MIN(at) FROM dictation WHERE user_id = ?");
    first.bind(1, userId);
    first.executeStep();
    if (first.getColumn(0).isNull()) return std::optional<Date>();
    return std::optional(dateOf(first.getColumn(0).getInt64()));
  });
}

Result<Statistics> Store::statistics(const std::string& userId, Date now, const std::string& zone) {
  return guarded([&]() -> Result<Statistics> {
    SQLite::Statement sums(
        *database_,
        "SELECT COUNT(*), COALESCE(SUM(words_written), 0), "
        "COALESCE(SUM(words_said) FILTER (WHERE audio_ms > 0), 0), COALESCE(SUM(audio_ms), 0) "
        "FROM dictation WHERE user_id = ? AND success = 1");
    sums.bind(1, userId);
    sums.executeStep();
    Statistics statistics;
    statistics.transcriptionCount = sums.getColumn(0).getInt64();
    statistics.totalWords = sums.getColumn(1).getInt64();
    const double minutes = double(sums.getColumn(3).getInt64()) / double(millisecondsPerMinute);
    if (minutes > 0) {
      statistics.averageWpm = std::llround(double(sums.getColumn(2).getInt64()) / minutes);
    }
    statistics.streak = streak(userId, now, zone);
    return statistics;
  });
}

int64_t Store::streak(const std::string& userId, Date now, const std::string& zone) {
  SQLite::Statement newest(
      *database_, "SELECT MAX(at) FROM dictation WHERE user_id = ? AND success = 1 AND at < ?");
  const auto newestBefore = [&](Date bound) -> std::optional<Date> {
    newest.reset();
    newest.bind(1, userId);
    newest.bind(2, milliseconds(bound));
    newest.executeStep();
    if (newest.getColumn(0).isNull()) return std::nullopt;
    return dateOf(newest.getColumn(0).getInt64());
  };
  std::optional<Date> found = newestBefore(now + std::chrono::milliseconds(1));
  std::string day = dayOf(now, zone);
  if (found && dayOf(*found, zone) != day) day = dates::dayBefore(day);
  int64_t streak = 0;
  while (found && dayOf(*found, zone) == day) {
    ++streak;
    // One look-up a day, however many dictations it has. A repeated hour after midnight may lie on
    // either side of the day's start.
    found = newestBefore(startOf(day, zone, *found));
    while (found && dayOf(*found, zone) == day) found = newestBefore(*found);
    day = dates::dayBefore(day);
  }
  return streak;
}

Status Store::addVoiceSample(const std::string& userId, const Json& probabilities, Date now) {
  return guarded([&]() -> Status {
    Json sums = Json::object();
    SQLite::Transaction transaction(*database_);
    SQLite::Statement read(*database_, "SELECT sums FROM voice WHERE user_id = ?");
    read.bind(1, userId);
    if (read.executeStep())
      sums = Json::parse(read.getColumn(0).getString()).value_or(Json::object());
    for (const char* attribute : {"emotion", "intent", "age", "gender"}) {
      const Json* earlier = sums.objectAt(attribute);
      Json sum = earlier != nullptr ? *earlier : Json::object();
      for (const Json* entry : probabilities.objectsAt(attribute)) {
        const auto token = entry->stringAt("token");
        const auto probability = entry->numberAt("probability");
        if (token && probability) sum.set(*token, sum.numberAt(*token).value_or(0) + *probability);
      }
      sums.set(attribute, std::move(sum));
    }
    SQLite::Statement write(
        *database_,
        "INSERT INTO voice VALUES(?1, 1, ?2, ?2, ?3) ON CONFLICT(user_id) DO UPDATE "
        "SET samples = samples + 1, updated = ?2, sums = ?3");
    write.bind(1, userId);
    write.bind(2, milliseconds(now));
    write.bind(3, sums.dump());
    write.exec();
    transaction.commit();
    return {};
  });
}

Result<std::optional<VoiceSum>> Store::voiceSum(const std::string& userId) {
  return guarded([&]() -> Result<std::optional<VoiceSum>> {
    SQLite::Statement row(*database_,
                          "SELECT samples, created, updated, sums FROM voice WHERE user_id = ?");
    row.bind(1, userId);
    if (!row.executeStep()) return std::optional<VoiceSum>();
    VoiceSum sum{row.getColumn(0).getInt64(),
                 dateOf(row.getColumn(1).getInt64()),
                 dateOf(row.getColumn(2).getInt64()),
                 {}};
    const Json sums = Json::parse(row.getColumn(3).getString()).value_or(Json::object());
    for (const auto& [attribute, labels] : sums.members()) {
      auto& means = sum.attributes[attribute];
      for (const auto& [label, value] : labels.members()) {
        means[label] = value.asNumber().value_or(0) / double(sum.sampleCount);
      }
    }
    return std::optional(std::move(sum));
  });
}

}  // namespace kestrin::backend
