#include "companion/backend/store.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sqlite3.h>
#include <sstream>
#include <unistd.h>

namespace kestrin::backend {

namespace {

constexpr int busyMilliseconds = 2000;
constexpr int64_t millisecondsPerMinute = 60'000;

constexpr const char* schema = R"(
  PRAGMA journal_mode = WAL;
  CREATE TABLE IF NOT EXISTS dictation(
    id INTEGER PRIMARY KEY, user_id TEXT NOT NULL, at INTEGER NOT NULL, mode TEXT NOT NULL,
    transcript TEXT NOT NULL, processed_text TEXT NOT NULL, app_name TEXT NOT NULL,
    auto_detected INTEGER NOT NULL, success INTEGER NOT NULL, audio_ms INTEGER NOT NULL,
    words_said INTEGER NOT NULL, words_written INTEGER NOT NULL);
  CREATE INDEX IF NOT EXISTS dictation_by_user ON dictation(user_id, at);
  CREATE TABLE IF NOT EXISTS voice(
    user_id TEXT PRIMARY KEY, samples INTEGER NOT NULL, created INTEGER NOT NULL,
    updated INTEGER NOT NULL, sums TEXT NOT NULL);
)";

int64_t milliseconds(Date date) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count();
}

Date dateOf(int64_t milliseconds) { return Date(std::chrono::milliseconds(milliseconds)); }

int64_t wordCount(const std::string& text) {
  std::istringstream words(text);
  int64_t count = 0;
  for (std::string word; words >> word;) ++count;
  return count;
}

/// Runs `work` and turns what the library throws into an error.
template <class Work>
auto guarded(Work work) -> decltype(work()) {
  try {
    return work();
  } catch (const SQLite::Exception& error) {
    return fail("Store", error.getErrorCode(), error.what());
  }
}

/// Days in a row that end today or yesterday. `days` newest first, "yyyy-MM-dd".
int64_t streakOf(const std::vector<std::string>& days, Date now, const std::string& zone) {
  if (days.empty()) return 0;
  // Noon, so that a day of 23 or 25 hours shifts nothing.
  const auto noon =
      dates::parse(dates::format(now, "yyyy-MM-dd", zone) + " 12", "yyyy-MM-dd HH", zone);
  Date day = noon.value_or(now);
  const auto name = [&] { return dates::format(day, "yyyy-MM-dd", zone); };
  if (days.front() != name()) day -= std::chrono::hours(24);
  int64_t streak = 0;
  for (const std::string& found : days) {
    if (found != name()) break;
    ++streak;
    day -= std::chrono::hours(24);
  }
  return streak;
}

}  // namespace

struct Store::Database : SQLite::Database {
  using SQLite::Database::Database;
};

Store::Store(std::unique_ptr<Database> database) : database_(std::move(database)) {}
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
    auto database = std::make_unique<Database>(path, SQLite::OPEN_READWRITE, busyMilliseconds);
    database->exec(schema);
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
    insert.bind(9, dictation.audioMilliseconds);
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
    return {};
  });
}

Result<Statistics> Store::statistics(const std::string& userId, Date now, const std::string& zone) {
  return guarded([&]() -> Result<Statistics> {
    Statistics statistics;
    int64_t timedWords = 0;
    int64_t timedMilliseconds = 0;
    std::vector<std::string> days;
    SQLite::Statement rows(*database_,
                           "SELECT at, words_written, words_said, audio_ms FROM dictation "
                           "WHERE user_id = ? AND success = 1 ORDER BY at DESC");
    rows.bind(1, userId);
    while (rows.executeStep()) {
      ++statistics.transcriptionCount;
      statistics.totalWords += rows.getColumn(1).getInt64();
      if (const int64_t length = rows.getColumn(3).getInt64(); length > 0) {
        timedWords += rows.getColumn(2).getInt64();
        timedMilliseconds += length;
      }
      const std::string day =
          dates::format(dateOf(rows.getColumn(0).getInt64()), "yyyy-MM-dd", zone);
      if (days.empty() || days.back() != day) days.push_back(day);
    }
    if (timedMilliseconds > 0) {
      statistics.averageWpm = timedWords * millisecondsPerMinute / timedMilliseconds;
    }
    statistics.streak = streakOf(days, now, zone);
    return statistics;
  });
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
