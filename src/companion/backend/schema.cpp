#include "companion/backend/schema.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <iterator>
#include <sqlite3.h>

namespace kestrin::backend {

namespace {

/// In order; the file's `user_version` says how many it has seen. A step that was released is never
/// changed: a new form of a table is a new step at the end.
constexpr const char* steps[] = {
    // Files of the time before the count have these tables already.
    R"(
  CREATE TABLE IF NOT EXISTS dictation(
    id INTEGER PRIMARY KEY, user_id TEXT NOT NULL, at INTEGER NOT NULL, mode TEXT NOT NULL,
    transcript TEXT NOT NULL, processed_text TEXT NOT NULL, app_name TEXT NOT NULL,
    auto_detected INTEGER NOT NULL, success INTEGER NOT NULL, audio_ms INTEGER NOT NULL,
    words_said INTEGER NOT NULL, words_written INTEGER NOT NULL);
  CREATE INDEX IF NOT EXISTS dictation_by_user ON dictation(user_id, at);
  CREATE TABLE IF NOT EXISTS voice(
    user_id TEXT PRIMARY KEY, samples INTEGER NOT NULL, created INTEGER NOT NULL,
    updated INTEGER NOT NULL, sums TEXT NOT NULL);
)",
    // `described` is the number of lines that title and summary were made from.
    R"(
  CREATE TABLE IF NOT EXISTS live_session(
    id TEXT PRIMARY KEY, device_id TEXT NOT NULL, started INTEGER NOT NULL,
    ended INTEGER NOT NULL DEFAULT 0, use_case TEXT NOT NULL DEFAULT '',
    contact_email TEXT NOT NULL DEFAULT '', contact_name TEXT NOT NULL DEFAULT '',
    files TEXT NOT NULL DEFAULT '[]', pins TEXT NOT NULL DEFAULT '[]',
    snapshot TEXT NOT NULL DEFAULT '', title TEXT NOT NULL DEFAULT '',
    summary TEXT NOT NULL DEFAULT '', described INTEGER NOT NULL DEFAULT 0);
  CREATE INDEX IF NOT EXISTS live_session_by_device ON live_session(device_id, started);
  CREATE TABLE IF NOT EXISTS live_line(
    id INTEGER PRIMARY KEY, session_id TEXT NOT NULL, at INTEGER NOT NULL, channel TEXT NOT NULL,
    text TEXT NOT NULL, speaker INTEGER NOT NULL, metadata TEXT NOT NULL);
  CREATE INDEX IF NOT EXISTS live_line_by_session ON live_line(session_id);
)",
    R"(
  CREATE TABLE IF NOT EXISTS research(
    id TEXT PRIMARY KEY, user_id TEXT NOT NULL, created INTEGER NOT NULL, query TEXT NOT NULL,
    summary TEXT NOT NULL, sources TEXT NOT NULL);
  CREATE INDEX IF NOT EXISTS research_by_user ON research(user_id, created);
)",
    R"(
  CREATE TABLE IF NOT EXISTS note(
    id TEXT PRIMARY KEY, user_id TEXT NOT NULL, created INTEGER NOT NULL,
    updated INTEGER NOT NULL DEFAULT 0, content TEXT NOT NULL, transcript TEXT NOT NULL DEFAULT '');
  CREATE INDEX IF NOT EXISTS note_by_user ON note(user_id, created);
)",
    // Times that have not come are 0.
    R"(
  CREATE TABLE IF NOT EXISTS call(
    room TEXT PRIMARY KEY, caller_id TEXT NOT NULL, caller_name TEXT NOT NULL,
    recipient_id TEXT NOT NULL, caller_token TEXT NOT NULL, recipient_token TEXT NOT NULL,
    created INTEGER NOT NULL, offered INTEGER NOT NULL DEFAULT 0,
    answered INTEGER NOT NULL DEFAULT 0, ended INTEGER NOT NULL DEFAULT 0,
    reason TEXT NOT NULL DEFAULT '');
  CREATE INDEX IF NOT EXISTS call_by_caller ON call(caller_id, created);
  CREATE INDEX IF NOT EXISTS call_by_recipient ON call(recipient_id, created);
  CREATE TABLE IF NOT EXISTS call_note(
    room TEXT NOT NULL, user_id TEXT NOT NULL, transcript TEXT NOT NULL, summary TEXT NOT NULL,
    user_mood TEXT NOT NULL, other_mood TEXT NOT NULL, user_emotion TEXT NOT NULL,
    other_emotion TEXT NOT NULL, duration INTEGER NOT NULL, PRIMARY KEY(room, user_id));
  CREATE TABLE IF NOT EXISTS presence(
    device_id TEXT PRIMARY KEY, user_name TEXT NOT NULL, last_seen INTEGER NOT NULL);
)",
};

}  // namespace

int knownSchema() { return static_cast<int>(std::size(steps)); }

void migrate(SQLite::Database& database) {
  const int seen = database.execAndGet("PRAGMA user_version").getInt();
  const int known = knownSchema();
  if (seen > known) {
    throw SQLite::Exception("The data was written by a newer version of Kestrin", SQLITE_CANTOPEN);
  }
  for (int step = seen; step < known; ++step) {
    SQLite::Transaction transaction(database);
    database.exec(steps[step]);
    database.exec("PRAGMA user_version = " + std::to_string(step + 1));
    transaction.commit();
  }
}

}  // namespace kestrin::backend
