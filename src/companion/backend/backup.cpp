#include "companion/backend/backup.h"

#include <SQLiteCpp/Backup.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sqlite3.h>
#include <unistd.h>

#include "companion/backend/database.h"
#include "companion/backend/schema.h"
#include "companion/backend/store.h"

namespace kestrin::backend {
namespace {

namespace fs = std::filesystem;

constexpr int patienceMilliseconds = 5000;
constexpr int allPages = -1;

Status refuse(const std::string& why) { return fail("Store", SQLITE_ERROR, why); }

void copy(SQLite::Database& from, SQLite::Database& to) {
  SQLite::Backup backup(to, from);
  backup.executeStep(allPages);
}

/// Nothing when the file is a copy that can be taken.
std::string problemOf(SQLite::Database& database) {
  if (database.execAndGet("PRAGMA integrity_check").getString() != "ok")
    return "The copy is damaged";
  if (!database.tableExists("dictation")) return "The file is no copy of the companion's data";
  if (database.execAndGet("PRAGMA user_version").getInt() > knownSchema())
    return "The copy was written by a newer version of Kestrin";
  return {};
}

}  // namespace

Status exportStore(const std::string& storePath, const std::string& file) {
  if (!fs::exists(storePath)) return refuse("There is no data yet: " + storePath);
  const std::string scratch = file + ".part";
  std::error_code ignored;
  fs::remove(scratch, ignored);
  const int made = ::open(scratch.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600);
  if (made < 0) return refuse(file + " cannot be written: " + std::strerror(errno));
  ::close(made);
  const Status written = guarded([&]() -> Status {
    SQLite::Database from(storePath, SQLite::OPEN_READONLY, patienceMilliseconds);
    SQLite::Database to(scratch, SQLite::OPEN_READWRITE);
    copy(from, to);
    // One file: nothing of it may lie in a log beside it.
    to.exec("PRAGMA journal_mode = DELETE");
    return {};
  });
  if (!written) {
    fs::remove(scratch, ignored);
    return written;
  }
  std::error_code error;
  fs::rename(scratch, file, error);
  return error ? refuse(file + " cannot be written: " + error.message()) : Status{};
}

Status importStore(const std::string& storePath, const std::string& file) {
  if (!fs::exists(file)) return refuse("There is no file " + file);
  return guarded([&]() -> Status {
    SQLite::Database from(file, SQLite::OPEN_READONLY);
    if (const auto problem = problemOf(from); !problem.empty()) return refuse(problem);
    {
      // Makes the folder and the file with their modes.
      const auto store = Store::open(storePath);
      if (!store) return fail(store.error());
    }
    SQLite::Database to(storePath, SQLite::OPEN_READWRITE, patienceMilliseconds);
    copy(from, to);
    to.exec("PRAGMA journal_mode = WAL");
    migrate(to);
    return {};
  });
}

Status eraseStore(const std::string& storePath) {
  if (!fs::exists(storePath)) return {};
  const Status alone = guarded([&]() -> Status {
    SQLite::Database database(storePath, SQLite::OPEN_READWRITE);
    database.exec("PRAGMA locking_mode = EXCLUSIVE");
    database.exec("BEGIN EXCLUSIVE; ROLLBACK");
    return {};
  });
  // A file that is no database holds nothing that another has open.
  if (!alone && alone.error().code == SQLITE_BUSY)
    return refuse("The companion is running: end it first (kestrin services down)");
  for (const char* suffix : {"", "-wal", "-shm"}) {
    std::error_code error;
    fs::remove(storePath + suffix, error);
    if (error) return refuse(storePath + suffix + " cannot be removed: " + error.message());
  }
  return {};
}

}  // namespace kestrin::backend
