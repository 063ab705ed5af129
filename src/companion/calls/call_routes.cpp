#include "companion/calls/call_routes.h"

#include "companion/assist/gist.h"
#include "companion/backend/answers.h"
#include "companion/calls/call_store.h"
#include "companion/calls/presence_routes.h"
#include "companion/calls/room_hub.h"
#include "platform/text/text.h"

namespace kestrin::backend {
namespace {

using server::Request;
using server::Responder;

constexpr int64_t mostHistory = 200;
constexpr size_t longestText = 1u << 20, longestName = 200, summarySentences = 3;
constexpr size_t longestSignal = 64u << 10, mostSignalsAtOnce = 200;
constexpr const char* tokenPrefix = "kestrin-room.";
constexpr const char* noCall = "There is no such call";

std::string newToken(Random& random) {
  static constexpr const char* digits = "0123456789abcdef";
  std::string out = tokenPrefix;
  for (const char c : random.bytes(24)) {
    out += digits[static_cast<unsigned char>(c) >> 4];
    out += digits[static_cast<unsigned char>(c) & 15];
  }
  return out;
}

/// The call of the room, if the user is one of its two sides; answers when not.
std::optional<StoredCall> callOf(CallStore& calls, const Json& body, const Request& request,
                                 const Responder& responder) {
  const std::string user = body.stringAt("userId", "");
  if (!admits(user, request, responder)) return std::nullopt;
  auto call = calls.find(body.stringAt("roomName", ""));
  if (!call) {
    answerDone(responder, fail(call.error()));
    return std::nullopt;
  }
  if (!*call || !(*call)->isOf(user)) {
    answerFailed(responder, 404, noCall);
    return std::nullopt;
  }
  return std::move(*call);
}

void initiate(CallStore& calls, const Request& request, Random& random, Date now,
              const Responder& responder) {
  const auto body = objectIn(request, responder);
  if (!body) return;
  StoredCall call;
  call.callerId = body->stringAt("callerId", "");
  if (!admits(call.callerId, request, responder)) return;
  call.callerName = text::prefix(body->stringAt("callerName", ""), longestName);
  const auto recipient =
      calls.resolve(text::prefix(text::trim(body->stringAt("recipientId", "")), longestName));
  if (!recipient) return answerDone(responder, fail(recipient.error()));
  if (!*recipient) return answerFailed(responder, 404, "Nobody can be called by that name");
  if (**recipient == call.callerId) return answerFailed(responder, 400, "That is this device");
  call.recipientId = **recipient;
  call.room = "call-" + text::lower(random.uuid());
  call.callerToken = newToken(random);
  call.recipientToken = newToken(random);
  call.created = now;
  if (const auto added = calls.add(call); !added) return answerDone(responder, added);
  responder.json(200, Json::object({{"success", true}, {"roomName", call.room}}));
}

void incoming(CallStore& calls, const Request& request, Date now, const Responder& responder) {
  if (!admits(request.rest, request, responder)) return;
  const auto call = calls.offer(request.rest, now);
  if (!call) return answerDone(responder, fail(call.error()));
  if (!*call) return responder.json(200, Json::object({{"hasIncoming", false}}));
  responder.json(200, Json::object({{"hasIncoming", true},
                                    {"roomName", (*call)->room},
                                    {"callerId", (*call)->callerId},
                                    {"callerName", (*call)->callerName}}));
}

Json recordOf(const StoredCall& call, const std::optional<CallNote>& note, const std::string& user,
              Date now) {
  Json out = Json::object({{"id", call.room},
                           {"roomName", call.room},
                           {"callerId", call.callerId},
                           {"callerName", call.callerName},
                           {"recipientId", call.recipientId},
                           {"status", call.status(now)},
                           {"direction", call.callerId == user ? "outgoing" : "incoming"},
                           {"createdAt", dates::iso8601(call.created)}});
  if (call.answered) out.set("answeredAt", dates::iso8601(*call.answered));
  if (call.ended) out.set("endedAt", dates::iso8601(*call.ended));
  int64_t duration = note ? note->duration : 0;
  if (duration == 0 && call.answered && call.ended)
    duration =
        std::chrono::duration_cast<std::chrono::seconds>(*call.ended - *call.answered).count();
  if (duration > 0) out.set("duration", duration);
  if (!note) return out;
  for (const auto& [key, value] :
       {std::pair{"transcript", &note->transcript}, std::pair{"summary", &note->summary},
        std::pair{"userMood", &note->userMood}, std::pair{"otherMood", &note->otherMood},
        std::pair{"userEmotion", &note->userEmotion},
        std::pair{"otherEmotion", &note->otherEmotion}}) {
    if (!value->empty()) out.set(key, *value);
  }
  return out;
}

void history(CallStore& calls, const Request& request, Date now, const Responder& responder) {
  if (!admits(request.rest, request, responder)) return;
  const auto found = calls.history(request.rest, mostHistory);
  if (!found) return answerDone(responder, fail(found.error()));
  Json list = Json::array();
  for (const auto& [call, note] : *found) list.push(recordOf(call, note, request.rest, now));
  responder.json(200, Json::object({{"calls", std::move(list)}}));
}

void transcript(CallStore& calls, const Request& request, const Responder& responder) {
  const auto body = objectIn(request, responder);
  if (!body) return;
  const std::string user = body->stringAt("userId", "");
  if (!admits(user, request, responder)) return;
  CallNote note{body->stringAt("transcript", ""),   body->stringAt("summary", ""),
                body->stringAt("userMood", ""),     body->stringAt("otherMood", ""),
                body->stringAt("userEmotion", ""),  body->stringAt("otherEmotion", ""),
                body->intAt("duration").value_or(0)};
  if (note.transcript.size() + note.summary.size() > longestText)
    return answerFailed(responder, 413, "The transcript is too long");
  if (note.summary.empty() && body->boolAt("generateSummary").value_or(false)) {
    const auto sentences = assist::sentencesOf(assist::turnsOf(note.transcript));
    note.summary = text::join(assist::summary(sentences, summarySentences), " ");
  }
  const std::string room = body->stringAt("roomName", "");
  const auto call = calls.find(room);
  if (!call) return answerDone(responder, fail(call.error()));
  // A call that is none of this user's is summed up all the same; nothing of it is kept.
  const bool mine = *call && (*call)->isOf(user);
  if (mine) {
    if (const auto kept = calls.keepNote(room, user, note); !kept)
      return answerDone(responder, kept);
  }
  responder.json(200,
                 Json::object({{"success", true}, {"stored", mine}, {"summary", note.summary}}));
}

void room(CallStore& calls, RoomHub& hub, const Request& request, const Responder& responder) {
  const auto body = objectIn(request, responder);
  if (!body) return;
  const std::string name = body->stringAt("roomName", ""), token = body->stringAt("token", ""),
                    participant = body->stringAt("participant", "");
  if (participant.empty() || participant.size() > longestName)
    return answerFailed(responder, 400, "The participant's name is missing");
  const auto call = calls.find(name);
  if (!call) return answerDone(responder, fail(call.error()));
  const auto& known = *call;
  if (!known || token.empty() || (token != known->callerToken && token != known->recipientToken))
    return answerFailed(responder, 403, "This room is closed to you");
  const auto messages = body->objectsAt("messages");
  if (messages.size() > mostSignalsAtOnce) return answerFailed(responder, 413, "Too many signals");
  for (const Json* each : messages) {
    if (each->dump().size() > longestSignal)
      return answerFailed(responder, 413, "A signal is too long");
  }
  const auto exchanged =
      hub.exchange(name, participant, body->intAt("after").value_or(-1), messages);
  if (exchanged.refusal) return answerFailed(responder, 503, exchanged.refusal);
  responder.json(200, Json::object({{"success", true},
                                    {"after", exchanged.after},
                                    {"messages", Json::arrayOf(exchanged.signals)}}));
}

}  // namespace

void addCallRoutes(server::Server& server, BackendService& backend, Clock& clock, Random& random) {
  const auto route = [&](const char* method, const char* path, auto work) {
    backend.addStoreRoute(server, method, path,
                          [work](Store& store, const Request& request, const Responder& responder) {
                            CallStore calls(store);
                            work(calls, request, responder);
                          });
  };
  // A change of a call by one of its sides.
  const auto change = [&](const char* path, auto work) {
    route("POST", path,
          [work](CallStore& calls, const Request& request, const Responder& responder) {
            const auto body = objectIn(request, responder);
            if (!body) return;
            if (const auto call = callOf(calls, *body, request, responder))
              work(calls, *call, *body, responder);
          });
  };
  const auto hub = std::make_shared<RoomHub>(clock);
  route("POST", "/calls/initiate",
        [&clock, &random](CallStore& calls, const Request& request, const Responder& responder) {
          initiate(calls, request, random, clock.wallNow(), responder);
        });
  route("GET", "/calls/incoming/*",
        [&clock](CallStore& calls, const Request& request, const Responder& responder) {
          incoming(calls, request, clock.wallNow(), responder);
        });
  route("GET", "/calls/history/*",
        [&clock](CallStore& calls, const Request& request, const Responder& responder) {
          history(calls, request, clock.wallNow(), responder);
        });
  change("/calls/answer", [&clock](CallStore& calls, const StoredCall& call, const Json& body,
                                   const Responder& responder) {
    if (body.stringAt("userId", "") != call.recipientId)
      return answerFailed(responder, 403, "Only who is called can answer");
    answerDone(responder, calls.answer(call.room, clock.wallNow()));
  });
  change("/calls/token", [](CallStore&, const StoredCall& call, const Json& body,
                            const Responder& responder) {
    if (call.ended) return answerFailed(responder, 410, "The call is over");
    responder.json(200, Json::object({{"success", true},
                                      {"token", call.tokenOf(body.stringAt("userId", ""))}}));
  });
  change("/calls/end", [&clock](CallStore& calls, const StoredCall& call, const Json& body,
                                const Responder& responder) {
    answerDone(responder,
               calls.end(call.room, text::prefix(body.stringAt("reason", ""), longestName),
                         clock.wallNow()));
  });
  route("POST", "/calls/transcript", transcript);
  route("POST", "/calls/room",
        [hub](CallStore& calls, const Request& request, const Responder& responder) {
          room(calls, *hub, request, responder);
        });
  addPresenceRoutes(server, backend, clock);
}

}  // namespace kestrin::backend
