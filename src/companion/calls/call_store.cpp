#include "companion/calls/call_store.h"

#include "companion/backend/database.h"
#include "platform/text/text.h"

namespace kestrin::backend {
namespace {

constexpr const char* columns =
    "SELECT room, caller_id, caller_name, recipient_id, caller_token, recipient_token, created, "
    "answered, ended, reason FROM call ";
constexpr size_t leastDeviceId = 21;

std::optional<Date> dateIn(const SQLite::Column& column) {
  if (column.getInt64() == 0) return {};
  return dateOf(column.getInt64());
}

StoredCall callIn(SQLite::Statement& row) {
  return {row.getColumn(0).getString(),
          row.getColumn(1).getString(),
          row.getColumn(2).getString(),
          row.getColumn(3).getString(),
          row.getColumn(4).getString(),
          row.getColumn(5).getString(),
          dateOf(row.getColumn(6).getInt64()),
          dateIn(row.getColumn(7)),
          dateIn(row.getColumn(8)),
          row.getColumn(9).getString()};
}

/// The user's note beside a call of the history; nothing where none was kept.
std::optional<CallNote> noteIn(SQLite::Statement& row) {
  constexpr int first = 10;
  if (row.getColumn(first).isNull()) return {};
  const auto textAt = [&](int at) { return row.getColumn(first + at).getString(); };
  return CallNote{textAt(1),
                  textAt(2),
                  textAt(3),
                  textAt(4),
                  textAt(5),
                  textAt(6),
                  row.getColumn(first + 7).getInt64()};
}

template <class... Values>
void bindAll(SQLite::Statement& statement, const Values&... values) {
  int at = 0;
  (statement.bind(++at, values), ...);
}

/// `part` as a pattern of LIKE with the escape '\'.
std::string containing(const std::string& part) {
  std::string out = "%";
  for (const char c : part) {
    if (c == '%' || c == '_' || c == '\\') out += '\\';
    out += c;
  }
  return out + "%";
}

}  // namespace

std::string StoredCall::status(Date now) const {
  if (ended) return reason == "declined" || reason == "timeout" ? reason : "ended";
  if (answered) return "answered";
  return now - created > CallStore::ringing ? "timeout" : "ringing";
}

Status CallStore::add(const StoredCall& call) {
  return guarded([&]() -> Status {
    SQLite::Statement insert(*store_.database(),
                             "INSERT INTO call(room, caller_id, caller_name, recipient_id, "
                             "caller_token, recipient_token, created) VALUES(?,?,?,?,?,?,?)");
    bindAll(insert, call.room, call.callerId, call.callerName, call.recipientId, call.callerToken,
            call.recipientToken, milliseconds(call.created));
    insert.exec();
    return {};
  });
}

Result<std::optional<StoredCall>> CallStore::find(const std::string& room) {
  return guarded([&]() -> Result<std::optional<StoredCall>> {
    SQLite::Statement select(*store_.database(), std::string(columns) + "WHERE room = ?");
    select.bind(1, room);
    return select.executeStep() ? std::optional(callIn(select)) : std::nullopt;
  });
}

Result<std::optional<StoredCall>> CallStore::offer(const std::string& user, Date now) {
  return guarded([&]() -> Result<std::optional<StoredCall>> {
    SQLite::Statement select(*store_.database(),
                             std::string(columns) +
                                 "WHERE recipient_id = ? AND offered = 0 AND answered = 0 AND "
                                 "ended = 0 AND created > ? ORDER BY created DESC LIMIT 1");
    bindAll(select, user, milliseconds(now - ringing));
    if (!select.executeStep()) return std::optional<StoredCall>();
    StoredCall call = callIn(select);
    select.reset();
    SQLite::Statement update(*store_.database(), "UPDATE call SET offered = ? WHERE room = ?");
    bindAll(update, milliseconds(now), call.room);
    update.exec();
    return std::optional(std::move(call));
  });
}

Status CallStore::answer(const std::string& room, Date now) {
  return guarded([&]() -> Status {
    SQLite::Statement update(
        *store_.database(),
        "UPDATE call SET answered = ? WHERE room = ? AND answered = 0 AND ended = 0");
    bindAll(update, milliseconds(now), room);
    update.exec();
    return {};
  });
}

Status CallStore::end(const std::string& room, const std::string& reason, Date now) {
  return guarded([&]() -> Status {
    SQLite::Statement update(*store_.database(),
                             "UPDATE call SET ended = ?, reason = ? WHERE room = ? AND ended = 0");
    bindAll(update, milliseconds(now), reason, room);
    update.exec();
    return {};
  });
}

Result<std::vector<CallOfUser>> CallStore::history(const std::string& user, int64_t limit) {
  return guarded([&]() -> Result<std::vector<CallOfUser>> {
    SQLite::Statement select(
        *store_.database(),
        "SELECT call.room, caller_id, caller_name, recipient_id, caller_token, recipient_token, "
        "created, answered, ended, reason, note.room, transcript, summary, user_mood, other_mood, "
        "user_emotion, other_emotion, duration FROM call "
        "LEFT JOIN call_note AS note ON note.room = call.room AND note.user_id = ?1 "
        "WHERE caller_id = ?1 OR recipient_id = ?1 "
        "ORDER BY created DESC, call.rowid DESC LIMIT ?2");
    bindAll(select, user, limit);
    std::vector<CallOfUser> calls;
    while (select.executeStep()) calls.push_back({callIn(select), noteIn(select)});
    return calls;
  });
}

Status CallStore::keepNote(const std::string& room, const std::string& user, const CallNote& note) {
  return guarded([&]() -> Status {
    SQLite::Statement insert(
        *store_.database(),
        "INSERT OR REPLACE INTO call_note(room, user_id, transcript, summary, user_mood, "
        "other_mood, user_emotion, other_emotion, duration) VALUES(?,?,?,?,?,?,?,?,?)");
    bindAll(insert, room, user, note.transcript, note.summary, note.userMood, note.otherMood,
            note.userEmotion, note.otherEmotion, note.duration);
    insert.exec();
    return {};
  });
}

Status CallStore::heartbeat(const std::string& device, const std::string& userName, Date now) {
  return guarded([&]() -> Status {
    SQLite::Statement insert(*store_.database(),
                             "INSERT INTO presence(device_id, user_name, last_seen) VALUES(?,?,?) "
                             "ON CONFLICT(device_id) DO UPDATE SET user_name = excluded.user_name, "
                             "last_seen = excluded.last_seen");
    bindAll(insert, device, userName, milliseconds(now));
    insert.exec();
    return {};
  });
}

Status CallStore::offline(const std::string& device) {
  return guarded([&]() -> Status {
    SQLite::Statement update(*store_.database(),
                             "UPDATE presence SET last_seen = 0 WHERE device_id = ?");
    update.bind(1, device);
    update.exec();
    return {};
  });
}

Result<std::vector<Presence>> CallStore::onlineSince(Date since, const std::string& except) {
  return guarded([&]() -> Result<std::vector<Presence>> {
    SQLite::Statement select(*store_.database(),
                             "SELECT device_id, user_name, last_seen FROM presence WHERE "
                             "last_seen > ? AND device_id <> ? ORDER BY user_name, device_id");
    bindAll(select, milliseconds(since), except);
    std::vector<Presence> out;
    while (select.executeStep()) {
      out.push_back({select.getColumn(0).getString(), select.getColumn(1).getString(),
                     dateOf(select.getColumn(2).getInt64())});
    }
    return out;
  });
}

Result<std::optional<std::string>> CallStore::resolve(const std::string& recipient) {
  return guarded([&]() -> Result<std::optional<std::string>> {
    SQLite::Statement select(*store_.database(),
                             "SELECT device_id FROM presence WHERE device_id = ?1 OR "
                             "user_name = ?1 COLLATE NOCASE ORDER BY device_id <> ?1 LIMIT 2");
    select.bind(1, recipient);
    std::vector<std::string> found;
    while (select.executeStep()) found.push_back(select.getColumn(0).getString());
    if (!found.empty() && (found.size() == 1 || found.front() == recipient))
      return std::optional(found.front());
    // One that has never been online may be so in a moment.
    const bool isId = recipient.starts_with("device_") || recipient.size() >= leastDeviceId;
    return found.empty() && isId ? std::optional(recipient) : std::nullopt;
  });
}

Result<std::vector<Contact>> CallStore::frequent(const std::string& user, int64_t limit) {
  return guarded([&]() -> Result<std::vector<Contact>> {
    SQLite::Statement select(
        *store_.database(),
        "SELECT COALESCE(NULLIF(presence.user_name, ''), other), count(*) FROM "
        "(SELECT CASE WHEN caller_id = ?1 THEN recipient_id ELSE caller_id END AS other "
        "FROM call WHERE caller_id = ?1 OR recipient_id = ?1) "
        "LEFT JOIN presence ON presence.device_id = other "
        "GROUP BY other ORDER BY count(*) DESC LIMIT ?2");
    bindAll(select, user, limit);
    std::vector<Contact> out;
    while (select.executeStep())
      out.push_back({select.getColumn(0).getString(), select.getColumn(1).getInt64()});
    return out;
  });
}

Result<std::vector<Contact>> CallStore::search(const std::string& user, const std::string& part,
                                               int64_t limit) {
  return guarded([&]() -> Result<std::vector<Contact>> {
    SQLite::Statement select(*store_.database(),
                             "SELECT DISTINCT user_name FROM presence WHERE device_id <> ? AND "
                             "user_name LIKE ? ESCAPE '\\' ORDER BY user_name LIMIT ?");
    bindAll(select, user, containing(part), limit);
    std::vector<Contact> out;
    while (select.executeStep()) out.push_back({select.getColumn(0).getString(), 0});
    return out;
  });
}

}  // namespace kestrin::backend
