#include "companion/backend/note_routes.h"

#include "companion/backend/answers.h"
#include "companion/backend/database.h"
#include "platform/text/text.h"

namespace kestrin::backend {
namespace {

using server::Request;
using server::Responder;

constexpr int64_t mostListed = 500;
constexpr size_t longestText = 1u << 20;
constexpr const char* columns = "SELECT id, content, transcript, created, updated FROM note ";

Json noteIn(SQLite::Statement& row) {
  Json note =
      Json::object({{"id", row.getColumn(0).getString()},
                    {"content", row.getColumn(1).getString()},
                    {"createdAt", dates::iso8601(dateOf(row.getColumn(3).getInt64()), true)}});
  if (const auto transcript = row.getColumn(2).getString(); !transcript.empty())
    note.set("transcript", transcript);
  if (const int64_t updated = row.getColumn(4).getInt64(); updated != 0)
    note.set("updatedAt", dates::iso8601(dateOf(updated), true));
  return note;
}

/// Null when there is no such note of that user.
Result<Json> find(Store& store, const std::string& id, const std::string& userId) {
  return guarded([&]() -> Result<Json> {
    SQLite::Statement select(*store.database(),
                             std::string(columns) + "WHERE id = ? AND user_id = ?");
    select.bind(1, id);
    select.bind(2, userId);
    return select.executeStep() ? noteIn(select) : Json();
  });
}

void answerNote(Store& store, const std::string& id, const std::string& userId,
                const Responder& responder) {
  const auto note = find(store, id, userId);
  if (!note) return answerDone(responder, fail(note.error()));
  if (note->isNull()) return answerFailed(responder, 404, "There is no such note");
  responder.json(200, Json::object({{"success", true}, {"note", *note}}));
}

/// The request's object with a user and a content that can be kept; answers when it is none.
std::optional<Json> bodyOf(const Request& request, const Responder& responder) {
  auto body = objectIn(request, responder);
  if (!body || !admits(body->stringAt("user_id", ""), request, responder)) return std::nullopt;
  const std::string content = body->stringAt("content", "");
  if (text::trim(content).empty()) {
    answerFailed(responder, 400, "The note is empty");
    return std::nullopt;
  }
  if (content.size() + body->stringAt("transcript", "").size() > longestText) {
    answerFailed(responder, 413, "The note is too long");
    return std::nullopt;
  }
  return body;
}

void save(Store& store, const Request& request, const std::string& id, Date now,
          const Responder& responder) {
  const auto body = bodyOf(request, responder);
  if (!body) return;
  const std::string user = body->stringAt("user_id", "");
  const Status kept = guarded([&]() -> Status {
    SQLite::Statement insert(
        *store.database(),
        "INSERT INTO note(id, user_id, created, content, transcript) VALUES(?,?,?,?,?)");
    insert.bind(1, id);
    insert.bind(2, user);
    insert.bind(3, milliseconds(now));
    insert.bind(4, body->stringAt("content", ""));
    insert.bind(5, body->stringAt("transcript", ""));
    insert.exec();
    return {};
  });
  if (!kept) return answerDone(responder, kept);
  if (const Json* probabilities = body->objectAt("voice_metadata_probs")) {
    // The note is kept; how the voice sounded is not worth failing for.
    (void)store.addVoiceSample(user, *probabilities, now);
  }
  answerNote(store, id, user, responder);
}

void update(Store& store, const Request& request, Date now, const Responder& responder) {
  const auto body = bodyOf(request, responder);
  if (!body) return;
  const std::string user = body->stringAt("user_id", "");
  const Status changed = guarded([&]() -> Status {
    SQLite::Statement change(*store.database(),
                             "UPDATE note SET content = ?, transcript = COALESCE(?, transcript), "
                             "updated = ? WHERE id = ? AND user_id = ?");
    change.bind(1, body->stringAt("content", ""));
    if (const auto transcript = body->stringAt("transcript")) change.bind(2, *transcript);
    change.bind(3, milliseconds(now));
    change.bind(4, request.rest);
    change.bind(5, user);
    change.exec();
    return {};
  });
  if (!changed) return answerDone(responder, changed);
  answerNote(store, request.rest, user, responder);
}

void list(Store& store, const Request& request, const Responder& responder) {
  if (!admits(request.rest, request, responder)) return;
  Json notes = Json::array();
  const Status read = guarded([&]() -> Status {
    SQLite::Statement select(*store.database(), std::string(columns) +
                                                    "WHERE user_id = ? ORDER BY created DESC, "
                                                    "rowid DESC LIMIT ?");
    select.bind(1, request.rest);
    select.bind(2, mostListed);
    while (select.executeStep()) notes.push(noteIn(select));
    return {};
  });
  if (!read) return answerDone(responder, read);
  responder.json(200, Json::object({{"success", true}, {"notes", std::move(notes)}}));
}

}  // namespace

void addNoteRoutes(server::Server& server, BackendService& backend, Clock& clock, Random& random) {
  backend.addStoreRoute(
      server, "POST", "/notes/save",
      [&clock, &random](Store& store, const Request& request, const Responder& responder) {
        save(store, request, text::lower(random.uuid()), clock.wallNow(), responder);
      });
  backend.addStoreRoute(server, "GET", "/notes/*", list);
  backend.addStoreRoute(server, "PUT", "/notes/*",
                        [&clock](Store& store, const Request& request, const Responder& responder) {
                          update(store, request, clock.wallNow(), responder);
                        });
}

}  // namespace kestrin::backend
