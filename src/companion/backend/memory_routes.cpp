#include "companion/backend/memory_routes.h"

#include "companion/assist/documents.h"
#include "companion/assist/feedback.h"
#include "companion/assist/gist.h"
#include "companion/backend/answers.h"
#include "companion/backend/live_sessions.h"
#include "platform/text/text.h"

namespace kestrin::backend {

namespace {

using server::Request;
using server::Responder;

constexpr int64_t earlierSessions = 10;
constexpr size_t mostMemoryItems = 12;
constexpr size_t mostContactItems = 20;

/// What earlier conversations with a contact left behind.
struct ContactMemory {
  std::vector<LiveSession> sessions;      ///< newest first
  std::vector<assist::Finding> findings;  ///< of all, the oldest first
  std::vector<assist::Sentence> said;

  /// For a language model, and for people.
  std::string text() const {
    std::string out;
    for (const LiveSession& session : sessions) {
      if (session.summary.empty()) continue;
      out += dates::format(session.started, "yyyy-MM-dd") + ": " + session.summary + "\n";
    }
    return out;
  }
};

Result<ContactMemory> memoryOf(Store& store, const std::string& device, const std::string& email) {
  LiveSessions sessions(store);
  ContactMemory memory;
  if (email.empty()) return memory;
  auto found = sessions.ofDevice(device, earlierSessions, email);
  if (!found) return fail(found.error());
  memory.sessions = std::move(*found);
  for (auto session = memory.sessions.rbegin(); session != memory.sessions.rend(); ++session) {
    const auto transcript = sessions.transcript(session->id);
    if (!transcript) return fail(transcript.error());
    const auto said = assist::sentencesOf(assist::turnsOf(*transcript));
    memory.said.insert(memory.said.end(), said.begin(), said.end());
  }
  // Together: what was promised in one conversation may be done in the next.
  memory.findings = assist::findingsIn(memory.said);
  return memory;
}

/// What the request asks of a conversation, without its feedback.
Json contextAnswer(const Json& body, const std::vector<assist::Sentence>& sentences,
                   const std::vector<assist::Finding>& findings, const ContactMemory& memory) {
  Json items = assist::memoryItems(findings, mostMemoryItems);
  const Json earlier = assist::memoryItems(memory.findings, mostMemoryItems - items.items().size());
  for (const Json& item : earlier.items()) items.push(item);
  for (const LiveSession& session : memory.sessions) {
    if (items.items().size() == mostMemoryItems || session.summary.empty()) continue;
    items.push(assist::memoryItem(
        "session", "Session of " + dates::format(session.started, "d MMM yyyy"), session.summary));
  }
  return Json::object({{"success", true},
                       {"memoryItems", items},
                       {"docItems", assist::docItems(body.objectsAt("documents"), sentences)}});
}

void answerWith(Json answer, const assist::Feedback& feedback, const char* source,
                const Responder& responder) {
  answer.set("feedbackSummary", feedback.feedbackSummary)
      .set("suggestions", Json::arrayOf(feedback.suggestions))
      .set("keywords", Json::arrayOf(feedback.keywords))
      .set("source", source);
  responder.json(200, answer);
}

void liveContext(Store& store, const Request& request, assist::ModelFeedback& model,
                 const Responder& responder) {
  const Result<Json> body = Json::parse(request.body);
  if (!body || !body->isObject() || !body->stringAt("transcript")) {
    return answerFailed(responder, 400, "The body must be a JSON object with a transcript");
  }
  const std::string device = body->stringAt("device_user_id", "");
  if (!admits(device, request, responder)) return;
  const auto sentences = assist::sentencesOf(assist::turnsOf(body->stringAt("transcript", "")));
  const auto findings = assist::findingsIn(sentences);
  ContactMemory memory;
  const Json* filters = body->objectAt("filters");
  const auto isOn = [&](const char* name) { return filters && filters->boolAt(name) == true; };
  if (isOn("memories") || isOn("history")) {
    auto known = memoryOf(store, device, body->stringAt("contact_email", ""));
    if (!known) return answerDone(responder, fail(known.error()));
    memory = std::move(*known);
  }
  Json answer = contextAnswer(*body, sentences, findings, memory);
  if (!body->boolAt("generateFeedback").value_or(false)) return responder.json(200, answer);
  const Job stop = model.ask(*body, memory.text(),
                             [answer, byRules = assist::feedbackOn(sentences, findings),
                              responder](const std::optional<assist::Feedback>& feedback) {
                               answerWith(answer, feedback.value_or(byRules),
                                          feedback ? "model" : "rules", responder);
                             });
  responder.onClientGone(stop);
}

void contactContext(Store& store, const Request& request, const Responder& responder) {
  const std::string device = request.queryValue("device_user_id");
  const std::string email = request.queryValue("email"), name = request.queryValue("name");
  if (!admits(device, request, responder)) return;
  const auto memory = memoryOf(store, device, email);
  if (!memory) return answerDone(responder, fail(memory.error()));
  Json answer =
      Json::object({{"success", true},
                    {"contact", Json::object({{"email", email}, {"name", name}})},
                    {"sessionCount", int64_t(memory->sessions.size())},
                    {"summary", text::trim(memory->text())},
                    {"keywords", Json::arrayOf(assist::keywords(memory->said, 6))},
                    {"memoryItems", assist::memoryItems(memory->findings, mostContactItems)}});
  if (!memory->sessions.empty()) {
    answer.set("lastSession", dates::iso8601(memory->sessions.front().started, true));
  }
  responder.json(200, answer);
}

}  // namespace

void addMemoryRoutes(server::Server& server, BackendService& backend,
                     assist::ModelFeedback& feedback) {
  backend.addStoreRoute(
      server, "POST", "/memory/live-context",
      [&feedback](Store& store, const Request& request, const Responder& responder) {
        liveContext(store, request, feedback, responder);
      });
  backend.addStoreRoute(server, "GET", "/memory/contact-context", contactContext);
  for (const char* path : {"/drive/files", "/drive/file/*"}) {
    server.route("GET", path, [](const Request&, const Responder& responder) {
      answerFailed(responder, 501, "No Google Drive is linked to this computer's own services");
    });
  }
}

}  // namespace kestrin::backend
