#include "companion/backend/live_sessions.h"

#include <algorithm>

#include "companion/assist/gist.h"
#include "companion/backend/database.h"
#include "platform/text/text.h"

namespace kestrin::backend {

namespace {

constexpr const char* columns =
    "SELECT id, device_id, started, ended, use_case, contact_email, contact_name, files, pins, "
    "snapshot, title, summary, described, "
    "(SELECT COUNT(*) FROM live_line WHERE session_id = s.id AND channel = 'microphone'), "
    "(SELECT COUNT(*) FROM live_line WHERE session_id = s.id AND channel = 'system'), "
    "(SELECT MAX(at) FROM live_line WHERE session_id = s.id) FROM live_session s ";

Json storedJson(const std::string& text, Json fallback) {
  return Json::parse(text).value_or(std::move(fallback));
}

/// `described` gets the number of lines that the row's title and summary were made from.
LiveSession sessionIn(SQLite::Statement& row, int64_t& described) {
  LiveSession out;
  out.id = row.getColumn(0).getString();
  out.deviceId = row.getColumn(1).getString();
  const int64_t started = row.getColumn(2).getInt64(), ended = row.getColumn(3).getInt64();
  out.started = dateOf(started);
  if (ended != 0) out.ended = dateOf(ended);
  out.useCase = row.getColumn(4).getString();
  out.contactEmail = row.getColumn(5).getString();
  out.contactName = row.getColumn(6).getString();
  out.attachedFiles = storedJson(row.getColumn(7).getString(), Json::array());
  out.pinnedItems = storedJson(row.getColumn(8).getString(), Json::array());
  if (const std::string snapshot = row.getColumn(9).getString(); !snapshot.empty()) {
    out.feedbackSnapshot = storedJson(snapshot, Json::object());
  }
  out.title = row.getColumn(10).getString();
  out.summary = row.getColumn(11).getString();
  described = row.getColumn(12).getInt64();
  out.microphoneCount = row.getColumn(13).getInt64();
  out.systemAudioCount = row.getColumn(14).getInt64();
  const int64_t last = std::max(ended != 0 ? ended : started, row.getColumn(15).getInt64());
  out.durationMilliseconds = ended != 0 ? std::max<int64_t>(ended - started, 0) : last - started;
  return out;
}

}  // namespace

Status LiveSessions::start(const std::string& id, const std::string& deviceId, Date now) {
  return guarded([&]() -> Status {
    SQLite::Statement insert(*database_,
                             "INSERT INTO live_session(id, device_id, started) VALUES(?,?,?)");
    insert.bind(1, id);
    insert.bind(2, deviceId);
    insert.bind(3, milliseconds(now));
    insert.exec();
    return {};
  });
}

Status LiveSessions::change(const std::string& id, const LiveSessionChange& change) {
  return guarded([&]() -> Status {
    SQLite::Statement update(
        *database_,
        "UPDATE live_session SET ended = IFNULL(?2, ended), use_case = IFNULL(?3, use_case), "
        "contact_email = IFNULL(?4, contact_email), contact_name = IFNULL(?5, contact_name), "
        "files = IFNULL(?6, files), pins = IFNULL(?7, pins), snapshot = IFNULL(?8, snapshot) "
        "WHERE id = ?1");
    update.bind(1, id);
    if (change.ended) update.bind(2, milliseconds(*change.ended));
    if (change.useCase) update.bind(3, *change.useCase);
    if (change.contactEmail) update.bind(4, *change.contactEmail);
    if (change.contactName) update.bind(5, *change.contactName);
    if (change.attachedFiles) update.bind(6, change.attachedFiles->dump());
    if (change.pinnedItems) update.bind(7, change.pinnedItems->dump());
    if (change.feedbackSnapshot) update.bind(8, change.feedbackSnapshot->dump());
    update.exec();
    return {};
  });
}

Result<bool> LiveSessions::addLine(const std::string& id, const LiveLine& line) {
  return guarded([&]() -> Result<bool> {
    SQLite::Statement insert(
        *database_,
        "INSERT INTO live_line(session_id, at, channel, text, speaker, metadata) "
        "SELECT ?1,?2,?3,?4,?5,?6 WHERE (SELECT COUNT(*) FROM live_line WHERE session_id = ?1) < "
        "?7");
    insert.bind(1, id);
    insert.bind(2, milliseconds(line.at));
    insert.bind(3, line.channel);
    insert.bind(4, line.text);
    insert.bind(5, line.speakerNumber);
    insert.bind(6, line.metadata.dump());
    insert.bind(7, mostLines);
    return insert.exec() == 1;
  });
}

Result<std::optional<std::string>> LiveSessions::deviceOf(const std::string& id) {
  return guarded([&]() -> Result<std::optional<std::string>> {
    SQLite::Statement row(*database_, "SELECT device_id FROM live_session WHERE id = ?");
    row.bind(1, id);
    if (!row.executeStep()) return std::optional<std::string>();
    return std::optional(row.getColumn(0).getString());
  });
}

Result<std::optional<LiveSession>> LiveSessions::find(const std::string& id) {
  return guarded([&]() -> Result<std::optional<LiveSession>> {
    SQLite::Statement row(*database_, std::string(columns) + "WHERE id = ?");
    row.bind(1, id);
    if (!row.executeStep()) return std::optional<LiveSession>();
    int64_t described = 0;
    LiveSession session = sessionIn(row, described);
    if (described != session.microphoneCount + session.systemAudioCount) {
      if (const Status done = describe(session); !done) return fail(done.error());
    }
    return std::optional(std::move(session));
  });
}

Result<std::vector<LiveSession>> LiveSessions::ofDevice(const std::string& deviceId, int64_t limit,
                                                        const std::string& contactEmail) {
  return guarded([&]() -> Result<std::vector<LiveSession>> {
    SQLite::Statement rows(
        *database_, std::string(columns) +
                        "WHERE device_id = ?1 AND (?2 = '' OR contact_email = ?2 COLLATE NOCASE) "
                        "ORDER BY started DESC, rowid DESC LIMIT ?3");
    rows.bind(1, deviceId);
    rows.bind(2, contactEmail);
    rows.bind(3, std::max<int64_t>(limit, 0));
    std::vector<LiveSession> found;
    std::vector<size_t> outdated;
    while (rows.executeStep()) {
      int64_t described = 0;
      found.push_back(sessionIn(rows, described));
      const LiveSession& session = found.back();
      if (described != session.microphoneCount + session.systemAudioCount) {
        outdated.push_back(found.size() - 1);
      }
    }
    for (const size_t i : outdated) {
      if (const Status done = describe(found[i]); !done) return fail(done.error());
    }
    return found;
  });
}

/// Made when somebody looks, and kept until more lines have come; where it cannot be kept, as on a
/// full disk, it is made again next time.
Status LiveSessions::describe(LiveSession& session) {
  const auto said = transcript(session.id);
  if (!said) return fail(said.error());
  const auto sentences = assist::sentencesOf(assist::turnsOf(*said));
  session.title = assist::titleOf(sentences);
  session.summary = text::join(assist::summary(sentences, 2), " ");
  (void)guarded([&]() -> Status {
    SQLite::Statement update(
        *database_, "UPDATE live_session SET title = ?, summary = ?, described = ? WHERE id = ?");
    update.bind(1, session.title);
    update.bind(2, session.summary);
    update.bind(3, session.microphoneCount + session.systemAudioCount);
    update.bind(4, session.id);
    update.exec();
    return {};
  });
  return {};
}

Result<std::vector<LiveLine>> LiveSessions::lines(const std::string& id) {
  return guarded([&]() -> Result<std::vector<LiveLine>> {
    SQLite::Statement rows(*database_,
                           "SELECT at, channel, text, speaker, metadata FROM live_line "
                           "WHERE session_id = ? ORDER BY id");
    rows.bind(1, id);
    std::vector<LiveLine> found;
    while (rows.executeStep()) {
      found.push_back({dateOf(rows.getColumn(0).getInt64()), rows.getColumn(1).getString(),
                       rows.getColumn(2).getString(), rows.getColumn(3).getInt64(),
                       storedJson(rows.getColumn(4).getString(), Json::object())});
    }
    return found;
  });
}

Result<std::string> LiveSessions::transcript(const std::string& id) {
  const auto found = lines(id);
  if (!found) return fail(found.error());
  std::string out;
  for (const LiveLine& line : *found) {
    // A line is one turn, whatever its text holds.
    out += (line.channel == "microphone" ? "[YOU] " : "[OTHER] ") +
           text::replaceAll(line.text, "\n", " ") + "\n";
  }
  return out;
}

}  // namespace kestrin::backend
