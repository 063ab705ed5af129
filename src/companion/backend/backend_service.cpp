#include "companion/backend/backend_service.h"

#include <charconv>

namespace kestrin::backend {

namespace {

using server::Request;
using server::Responder;

constexpr int64_t usualHistory = 50;
constexpr int64_t longestHistory = 1000;

void answerDone(const Responder& responder, const Status& status) {
  if (!status) {
    return responder.json(
        500, Json::object({{"success", false}, {"error", status.error().description}}));
  }
  responder.json(200, Json::object({{"success", true}}));
}

/// The request's object with a user id; answers with 400 and gives nothing when it is none.
std::optional<Json> bodyOf(const Request& request, const Responder& responder) {
  Result<Json> body = Json::parse(request.body);
  if (!body || body->stringAt("user_id", "").empty()) {
    responder.error(400, "The body must be a JSON object with a user_id");
    return std::nullopt;
  }
  return std::move(*body);
}

/// The context is a JSON text within the JSON.
std::string appNameIn(const Json& body) {
  const Result<Json> context = Json::parse(body.stringAt("app_context", ""));
  return context ? context->stringAt("app_name", "") : "";
}

void logTranscription(Store& store, const Json& body, Date now, const Responder& responder) {
  Dictation dictation;
  dictation.userId = body.stringAt("user_id", "");
  dictation.at = now;
  dictation.mode = body.stringAt("detected_mode", body.stringAt("mode", ""));
  dictation.transcript = body.stringAt("transcript", "");
  dictation.processedText = body.stringAt("processed_text", "");
  dictation.appName = appNameIn(body);
  dictation.autoDetected = body.boolAt("auto_detected").value_or(false);
  dictation.success = body.boolAt("success").value_or(true);
  dictation.audioMilliseconds = body.intAt("audio_duration_ms").value_or(0);
  answerDone(responder, store.add(dictation));
}

Json historyEntry(const Dictation& dictation) {
  return Json::object({{"id", std::to_string(dictation.id)},
                       {"timestamp", dates::iso8601(dictation.at, true)},
                       {"mode", dictation.mode},
                       {"transcript", dictation.transcript},
                       {"processedText", dictation.processedText},
                       {"appName", dictation.appName},
                       {"autoDetected", dictation.autoDetected},
                       {"success", dictation.success}});
}

void answerHistory(Store& store, const Request& request, const Responder& responder) {
  const std::string wanted = request.queryValue("limit");
  int64_t limit = usualHistory;
  std::from_chars(wanted.data(), wanted.data() + wanted.size(), limit);
  const auto found = store.history(request.rest, std::min(limit, longestHistory));
  if (!found) return answerDone(responder, fail(found.error()));
  Json list = Json::array();
  for (const Dictation& dictation : *found) list.push(historyEntry(dictation));
  responder.json(200, Json::object({{"success", true}, {"history", list}}));
}

void answerStatistics(Store& store, const Request& request, Date now, const Responder& responder) {
  const auto found = store.statistics(request.rest, now, "");
  if (!found) return answerDone(responder, fail(found.error()));
  responder.json(
      200,
      Json::object({{"success", true},
                    {"stats", Json::object({{"totalWords", found->totalWords},
                                            {"averageWPM", found->averageWpm},
                                            {"streak", found->streak},
                                            {"transcriptionCount", found->transcriptionCount}})}}));
}

void answerVoiceProfile(Store& store, const Request& request, const Responder& responder) {
  const auto found = store.voiceSum(request.rest);
  if (!found) return answerDone(responder, fail(found.error()));
  Json answer = Json::object({{"success", true}});
  if (const auto& sum = *found) {
    Json profile = Json::object({{"userId", request.rest},
                                 {"sampleCount", sum->sampleCount},
                                 {"createdAt", dates::iso8601(sum->createdAt)},
                                 {"updatedAt", dates::iso8601(sum->updatedAt)}});
    for (const auto& [attribute, labels] : sum->attributes) {
      Json points = Json::array();
      for (const auto& [label, value] : labels) {
        points.push(Json::object({{"label", label}, {"value", value}}));
      }
      profile.set(attribute, std::move(points));
    }
    answer.set("profile", std::move(profile));
  }
  responder.json(200, answer);
}

/// Nothing here can learn a personality from dictations: what the user has is handed back as it is.
void answerPersonality(const Request& request, const Responder& responder) {
  const auto body = bodyOf(request, responder);
  if (!body) return;
  const std::string current = body->stringAt("current_personality", "");
  if (current.empty()) {
    return responder.json(
        200, Json::object({{"success", false}, {"error", "There is no personality profile yet"}}));
  }
  responder.json(200, Json::object({{"success", true}, {"personality", current}}));
}

void answerOk(const Request&, const Responder& responder) {
  responder.json(200, Json::object({{"status", "ok"}, {"service", "backend"}}));
}

}  // namespace

BackendService::BackendService(Dispatch& dispatch, Store store)
    : dispatch_(dispatch),
      queue_(dispatch.makeQueue("companion.backend")),
      store_(std::make_shared<Store>(std::move(store))) {}

void BackendService::addStoreRoute(server::Server& server, const char* method, const char* path,
                                   Work work) {
  server.route(
      method, path,
      [queue = queue_, store = store_, work = std::move(work)](const Request&,
                                                               const Responder& responder) {
        queue->post([store, work, responder] { work(*store, responder.request(), responder); });
      });
}

void BackendService::addRoutes(server::Server& server) {
  const auto now = [&clock = dispatch_.clock()] { return clock.wallNow(); };
  addStoreRoute(server, "POST", "/log-transcription",
                [now](Store& store, const Request& request, const Responder& responder) {
                  if (const auto body = bodyOf(request, responder)) {
                    logTranscription(store, *body, now(), responder);
                  }
                });
  addStoreRoute(server, "POST", "/update-voice-profile",
                [now](Store& store, const Request& request, const Responder& responder) {
                  const auto body = bodyOf(request, responder);
                  if (!body) return;
                  const Json* probabilities = body->objectAt("voice_metadata_probs");
                  if (probabilities == nullptr) return answerDone(responder, {});
                  answerDone(responder, store.addVoiceSample(body->stringAt("user_id", ""),
                                                             *probabilities, now()));
                });
  addStoreRoute(server, "GET", "/history/*", answerHistory);
  addStoreRoute(server, "DELETE", "/history/*",
                [](Store& store, const Request& request, const Responder& responder) {
                  answerDone(responder, store.clearHistory(request.rest));
                });
  addStoreRoute(server, "GET", "/user-stats/*",
                [now](Store& store, const Request& request, const Responder& responder) {
                  answerStatistics(store, request, now(), responder);
                });
  addStoreRoute(server, "GET", "/voice-profile/*", answerVoiceProfile);
  server.route("POST", "/refresh-personality/*", answerPersonality);
  for (const char* path : {"/", "/health", "/voice-profile"}) server.route("GET", path, answerOk);
}

}  // namespace kestrin::backend
