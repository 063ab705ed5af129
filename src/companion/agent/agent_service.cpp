#include "companion/agent/agent_service.h"

#include <memory>

namespace kestrin::agent {

namespace {

using server::Request;
using server::Responder;

/// The request's object; answers with 400 and gives nothing when it is none.
std::optional<Json> bodyOf(const Request& request, const Responder& responder) {
  Result<Json> body = Json::parse(request.body);
  if (!body || !body->isObject() || !body->stringAt("transcript")) {
    responder.error(400, "The body must be a JSON object with a transcript");
    return std::nullopt;
  }
  return std::move(*body);
}

void processStream(Agent& agent, const Request& request, const Responder& responder) {
  const auto body = bodyOf(request, responder);
  if (!body) return;
  server::ResponseStream stream = responder.stream("text/event-stream; charset=utf-8");
  const auto cancel = std::make_shared<CancelToken>();
  stream.onClientGone([cancel] { cancel->cancel(); });
  const auto failed = std::make_shared<bool>(false);  // emit and done come one at a time
  agent.process(
      *body,
      [stream, failed](const Json& event) mutable {
        *failed = *failed || event.has("error");
        stream.send("data: " + event.dump() + "\n\n");
      },
      [stream, failed]() mutable {
        if (*failed) return stream.abort();
        stream.send("data: [DONE]\n\n");
        stream.close();
      },
      cancel);
}

/// What the events of one answer amount to.
struct Whole {
  std::string text;
  Json answer = Json::object();
  Json actions = Json::array();
  std::string error;

  void add(const Json& event) {
    if (const auto chunk = event.stringAt("chunk")) text += *chunk;
    if (const auto mode = event.stringAt("mode")) {
      answer.set("mode", *mode).set("auto_detected", event.boolAt("auto_detected").value_or(false));
    }
    if (const Json* action = event.objectAt("action")) actions.push(*action);
    if (const auto message = event.stringAt("error")) error = *message;
  }

  Json finish() {
    answer.set("success", error.empty()).set("processed_text", text);
    if (!actions.items().empty()) answer.set("actions", actions);
    if (!error.empty()) answer.set("error", error);
    return std::move(answer);
  }
};

void processWhole(Agent& agent, const Request& request, const Responder& responder) {
  const auto body = bodyOf(request, responder);
  if (!body) return;
  const auto cancel = std::make_shared<CancelToken>();
  responder.onClientGone([cancel] { cancel->cancel(); });
  const auto whole = std::make_shared<Whole>();
  agent.process(
      *body, [whole](const Json& event) { whole->add(event); },
      [whole, responder] {
        const int status = whole->error.empty() ? 200 : 502;
        responder.json(status, whole->finish());
      },
      cancel);
}

}  // namespace

void addRoutes(server::Server& server, Agent& agent) {
  server.route("POST", "/process/stream",
               [&agent](const Request& request, const Responder& responder) {
                 processStream(agent, request, responder);
               });
  server.route("POST", "/process", [&agent](const Request& request, const Responder& responder) {
    processWhole(agent, request, responder);
  });
  for (const char* path : {"/", "/health"}) {
    server.route("GET", path, [](const Request&, const Responder& responder) {
      responder.json(200, Json::object({{"status", "ok"}, {"service", "agent"}}));
    });
  }
}

void addModelHealthRoutes(server::Server& server, LanguageModel& model,
                          std::optional<std::string> modelUrl) {
  const auto answer = [&model, modelUrl = std::move(modelUrl)](const Request&,
                                                               const Responder& responder) {
    if (!modelUrl) return responder.error(503, "No local language model is configured");
    model.probe(*modelUrl, [responder](bool answers) {
      if (!answers) return responder.error(503, "The local language model does not answer");
      responder.json(200, Json::object({{"status", "ok"}, {"service", "language model"}}));
    });
  };
  for (const char* path : {"/", "/health"}) server.route("GET", path, answer);
}

}  // namespace kestrin::agent
