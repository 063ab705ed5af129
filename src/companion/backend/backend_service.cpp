#include "companion/backend/backend_service.h"

#include <algorithm>
#include <charconv>

#include "companion/backend/answers.h"
#include "platform/text/text.h"

namespace kestrin::backend {

namespace {

using server::Request;
using server::Responder;

constexpr int64_t usualHistory = 50;
constexpr int64_t longestHistory = 1000;
constexpr size_t longestName = 200;  ///< of a mode or an application, in characters
constexpr size_t longestText = 1u << 20;

/// The request's object with a user id; answers with an error and gives nothing when it is none.
std::optional<Json> bodyOf(const Request& request, const Responder& responder) {
  Result<Json> body = Json::parse(request.body);
  if (!body || body->stringAt("user_id", "").empty()) {
    responder.error(400, "The body must be a JSON object with a user_id");
    return std::nullopt;
  }
  if (!admits(body->stringAt("user_id", ""), request, responder)) return std::nullopt;
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
  dictation.mode =
      text::prefix(body.stringAt("detected_mode", body.stringAt("mode", "")), longestName);
  dictation.transcript = body.stringAt("transcript", "");
  dictation.processedText = body.stringAt("processed_text", "");
  dictation.appName = text::prefix(appNameIn(body), longestName);
  dictation.autoDetected = body.boolAt("auto_detected").value_or(false);
  dictation.success = body.boolAt("success").value_or(true);
  dictation.audioMilliseconds = body.intAt("audio_duration_ms").value_or(0);
  if (std::max(dictation.transcript.size(), dictation.processedText.size()) > longestText) {
    return responder.error(413, "A text may have " + std::to_string(longestText) + " bytes");
  }
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

/// Nothing for a limit that is no positive number; a large one is cut.
std::optional<int64_t> limitOf(const Request& request) {
  const std::string wanted = request.queryValue("limit");
  if (wanted.empty()) return usualHistory;
  int64_t limit = 0;
  const char* const end = wanted.data() + wanted.size();
  const auto read = std::from_chars(wanted.data(), end, limit);
  if (read.ec == std::errc::result_out_of_range && wanted[0] != '-') return longestHistory;
  if (read.ec != std::errc() || read.ptr != end || limit < 1) return std::nullopt;
  return std::min(limit, longestHistory);
}

void answerHistory(Store& store, const Request& request, const Responder& responder) {
  const auto limit = limitOf(request);
  if (!limit) return responder.error(400, "The limit must be a number from 1 on");
  const auto found = store.history(request.rest, *limit);
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

/// There is no account here: the user is the device. An e-mail address would say that a mail
/// account is connected.
void answerProfile(Store& store, const Request& request, const Responder& responder) {
  const auto first = store.firstDictation(request.rest);
  if (!first) return answerDone(responder, fail(first.error()));
  Json user = Json::object({{"userId", request.rest}});
  if (*first) user.set("createdAt", dates::iso8601(**first));
  responder.json(200, Json::object({{"success", true}, {"user", user}}));
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

BackendService::BackendService(Dispatch& dispatch, Store store, std::string version)
    : dispatch_(dispatch),
      version_(std::move(version)),
      queue_(dispatch.makeQueue("companion.backend")),
      store_(std::make_shared<Store>(std::move(store))) {}

BackendService::~BackendService() {
  queue_->sync([] {});
}

void BackendService::withStore(std::function<void(Store&)> work) {
  queue_->post([store = store_, work = std::move(work)] { work(*store); });
}

void BackendService::addStoreRoute(server::Server& server, const char* method, const char* path,
                                   Work work) {
  server.route(
      method, path,
      [queue = queue_, store = store_, work = std::move(work)](const Request&,
                                                               const Responder& responder) {
        queue->post([store, work, responder] { work(*store, responder.request(), responder); });
      });
}

/// A route whose path ends in a user's id.
void BackendService::addUserRoute(server::Server& server, const char* method, const char* path,
                                  Work work) {
  addStoreRoute(
      server, method, path,
      [work = std::move(work)](Store& store, const Request& request, const Responder& responder) {
        if (admits(request.rest, request, responder)) work(store, request, responder);
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
  addUserRoute(server, "GET", "/history/*", answerHistory);
  addUserRoute(server, "DELETE", "/history/*",
               [](Store& store, const Request& request, const Responder& responder) {
                 answerDone(responder, store.clearHistory(request.rest));
               });
  addUserRoute(server, "GET", "/user-stats/*",
               [now](Store& store, const Request& request, const Responder& responder) {
                 answerStatistics(store, request, now(), responder);
               });
  addUserRoute(server, "GET", "/user/profile/*", answerProfile);
  addUserRoute(server, "GET", "/voice-profile/*", answerVoiceProfile);
  server.route("POST", "/refresh-personality/*", answerPersonality);
  server.route("GET", "/app/version", [version = version_](const Request&, const Responder& to) {
    to.json(200, Json::object({{"version", version}}));
  });
  for (const char* path : {"/", "/health", "/voice-profile"}) server.route("GET", path, answerOk);
}

}  // namespace kestrin::backend
