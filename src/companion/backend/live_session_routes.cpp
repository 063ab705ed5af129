#include "companion/backend/live_session_routes.h"

#include "companion/backend/answers.h"
#include "companion/backend/live_sessions.h"
#include "platform/text/text.h"

namespace kestrin::backend {

namespace {

using server::Request;
using server::Responder;

constexpr int64_t mostSessions = 200;
constexpr size_t longestLine = 64u << 10;
constexpr size_t longestMetadata = 4u << 10;
constexpr size_t longestRecord = 256u << 10;  ///< files, pins or feedback of a session
constexpr size_t longestContact = 320;        ///< the longest e-mail address
constexpr size_t mostFiles = 5, mostPins = 12;
constexpr const char* noSession = "There is no such session";

Json sessionJson(const LiveSession& session) {
  Json out = Json::object({{"id", session.id},
                           {"startTime", dates::iso8601(session.started, true)},
                           {"transcriptCount", session.microphoneCount + session.systemAudioCount},
                           {"microphoneCount", session.microphoneCount},
                           {"systemAudioCount", session.systemAudioCount},
                           {"totalDurationMs", session.durationMilliseconds},
                           {"title", session.title},
                           {"summary", session.summary},
                           {"contactName", session.contactName},
                           {"contactEmail", session.contactEmail},
                           {"useCase", session.useCase},
                           {"attachedFiles", session.attachedFiles},
                           {"pinnedItems", session.pinnedItems}});
  if (session.ended) out.set("endTime", dates::iso8601(*session.ended, true));
  if (session.feedbackSnapshot) out.set("feedbackSnapshot", *session.feedbackSnapshot);
  return out;
}

Json lineJson(const LiveLine& line) {
  return Json::object({{"timestamp", dates::iso8601(line.at, true)},
                       {"text", line.text},
                       {"channel", line.channel},
                       {"speakerNumber", line.speakerNumber},
                       {"metadata", line.metadata}});
}

/// Whether the session is there and belongs to whoever asks; answers when not. A session of another
/// device is none: its id is not confirmed.
bool admitsSession(LiveSessions& sessions, const std::string& id, const Request& request,
                   const std::string& claimed, const Responder& responder) {
  const auto device = sessions.deviceOf(id);
  if (!device) {
    answerDone(responder, fail(device.error()));
    return false;
  }
  const std::string header = request.header("x-device-id");
  const bool mine =
      *device && (header.empty() || header == **device) && (claimed.empty() || claimed == **device);
  if (!mine) answerFailed(responder, 404, noSession);
  return mine;
}

/// The body of a request about the session that it names.
std::optional<Json> sessionBody(LiveSessions& sessions, const Request& request,
                                const Responder& responder) {
  auto body = objectIn(request, responder);
  if (!body || !admitsSession(sessions, body->stringAt("sessionId", ""), request,
                              body->stringAt("userId", ""), responder)) {
    return std::nullopt;
  }
  return body;
}

void addLine(Store& store, const Request& request, Date now, const Responder& responder) {
  LiveSessions sessions(store);
  const auto body = sessionBody(sessions, request, responder);
  if (!body) return;
  LiveLine line{now, body->stringAt("channel", ""), body->stringAt("text", ""),
                body->intAt("speakerNumber").value_or(1)};
  if (const Json* metadata = body->objectAt("metadata")) line.metadata = *metadata;
  if (line.channel != "system" && line.channel != "microphone") {
    return answerFailed(responder, 400, "The channel must be \"system\" or \"microphone\"");
  }
  if (text::trim(line.text).empty()) return answerFailed(responder, 400, "The line is empty");
  if (line.text.size() > longestLine || line.metadata.dump().size() > longestMetadata) {
    return answerFailed(responder, 413, "The line is too long");
  }
  const auto added = sessions.addLine(body->stringAt("sessionId", ""), line);
  if (!added) return answerDone(responder, fail(added.error()));
  if (!*added) return answerFailed(responder, 413, "The session has too many lines");
  answerDone(responder, {});
}

/// A list of objects within the limits; nothing for another value.
std::optional<Json> listAt(const Json& body, std::string_view key, size_t most) {
  const Json* list = body.find(key);
  const bool fits = list->isArray() && list->items().size() <= most &&
                    body.objectsAt(key).size() == list->items().size() &&
                    list->dump().size() <= longestRecord;
  return fits ? std::optional(*list) : std::nullopt;
}

/// What the body sets, or the key whose value cannot be taken.
Result<LiveSessionChange> changeIn(const Json& body) {
  LiveSessionChange change;
  const auto refused = [](const char* key) {
    return fail("LiveSession", 1, std::string("The value of ") + key + " cannot be taken");
  };
  for (const auto& [key, place] :
       {std::pair{"contactEmail", &change.contactEmail},
        std::pair{"contactName", &change.contactName}, std::pair{"useCase", &change.useCase}}) {
    if (!body.has(key)) continue;
    *place = body.stringAt(key);
    if (!*place || (*place)->size() > longestContact) return refused(key);
  }
  if (change.useCase && *change.useCase != "sales_call" && *change.useCase != "meeting") {
    return refused("useCase");
  }
  if (body.has("attachedFiles") &&
      !(change.attachedFiles = listAt(body, "attachedFiles", mostFiles))) {
    return refused("attachedFiles");
  }
  if (body.has("pinnedItems") && !(change.pinnedItems = listAt(body, "pinnedItems", mostPins))) {
    return refused("pinnedItems");
  }
  if (body.has("feedbackSnapshot")) {
    const Json* snapshot = body.objectAt("feedbackSnapshot");
    if (snapshot == nullptr || snapshot->dump().size() > longestRecord) {
      return refused("feedbackSnapshot");
    }
    change.feedbackSnapshot = *snapshot;
  }
  return change;
}

void update(Store& store, const Request& request, const Responder& responder) {
  LiveSessions sessions(store);
  const auto body = sessionBody(sessions, request, responder);
  if (!body) return;
  const auto change = changeIn(*body);
  if (!change) return answerFailed(responder, 400, change.error().description);
  answerDone(responder, sessions.change(body->stringAt("sessionId", ""), *change));
}

void answerSession(Store& store, const Request& request, const Responder& responder) {
  LiveSessions sessions(store);
  const size_t slash = request.rest.find('/');
  const std::string id = request.rest.substr(0, slash);
  const std::string what = slash == std::string::npos ? "" : request.rest.substr(slash);
  if (!what.empty() && what != "/transcripts") {
    return answerFailed(responder, 404, "There is nothing at " + request.path);
  }
  if (!admitsSession(sessions, id, request, "", responder)) return;
  if (what.empty()) {
    const auto session = sessions.find(id);
    if (!session) return answerDone(responder, fail(session.error()));
    if (!*session) return answerFailed(responder, 404, noSession);
    return responder.json(200,
                          Json::object({{"success", true}, {"session", sessionJson(**session)}}));
  }
  const auto lines = sessions.lines(id);
  if (!lines) return answerDone(responder, fail(lines.error()));
  Json list = Json::array();
  for (const LiveLine& line : *lines) list.push(lineJson(line));
  responder.json(200, Json::object({{"success", true}, {"transcripts", list}}));
}

void answerSessions(Store& store, const Request& request, const Responder& responder) {
  if (!admits(request.rest, request, responder)) return;
  const auto found = LiveSessions(store).ofDevice(request.rest, mostSessions);
  if (!found) return answerDone(responder, fail(found.error()));
  Json list = Json::array();
  for (const LiveSession& session : *found) list.push(sessionJson(session));
  responder.json(200, Json::object({{"success", true}, {"sessions", list}}));
}

void deliver(Store& store, const Request& request, const Responder& responder) {
  LiveSessions sessions(store);
  constexpr std::string_view ending = "/deliver";
  if (!request.rest.ends_with(ending)) {
    return answerFailed(responder, 404, "There is nothing at " + request.path);
  }
  const auto body = objectIn(request, responder);
  const std::string id = request.rest.substr(0, request.rest.size() - ending.size());
  if (!body ||
      !admitsSession(sessions, id, request, body->stringAt("device_user_id", ""), responder)) {
    return;
  }
  answerFailed(responder, 501, "No mail account is linked to this computer's own services");
}

}  // namespace

void addLiveSessionRoutes(server::Server& server, BackendService& backend, Clock& clock,
                          Random& random) {
  backend.addStoreRoute(
      server, "POST", "/live-assist/session/start",
      [&clock, &random](Store& store, const Request& request, const Responder& responder) {
        const auto body = objectIn(request, responder);
        if (!body) return;
        const std::string device = body->stringAt("device_id", body->stringAt("user_id", ""));
        if (!admits(device, request, responder)) return;
        const std::string id = text::lower(random.uuid());
        const Status started = LiveSessions(store).start(id, device, clock.wallNow());
        if (!started) return answerDone(responder, started);
        responder.json(200, Json::object({{"success", true}, {"sessionId", id}}));
      });
  backend.addStoreRoute(server, "POST", "/live-assist/session/end",
                        [&clock](Store& store, const Request& request, const Responder& responder) {
                          LiveSessions sessions(store);
                          const auto body = sessionBody(sessions, request, responder);
                          if (!body) return;
                          LiveSessionChange change;
                          change.ended = clock.wallNow();
                          answerDone(responder,
                                     sessions.change(body->stringAt("sessionId", ""), change));
                        });
  backend.addStoreRoute(server, "POST", "/live-assist/transcript",
                        [&clock](Store& store, const Request& request, const Responder& responder) {
                          addLine(store, request, clock.wallNow(), responder);
                        });
  backend.addStoreRoute(server, "POST", "/live-assist/session/update", update);
  backend.addStoreRoute(server, "POST", "/live-assist/session/*", deliver);
  backend.addStoreRoute(server, "GET", "/live-assist/session/*", answerSession);
  backend.addStoreRoute(server, "GET", "/live-assist/sessions/*", answerSessions);
}

}  // namespace kestrin::backend
