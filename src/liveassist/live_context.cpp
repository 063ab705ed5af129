#include "liveassist/live_context.h"

#include <utility>

namespace kestrin {
namespace {

constexpr size_t largestAnswer = 8u << 20;

Json orNull(std::optional<std::string> value) { return value ? Json(std::move(*value)) : Json(); }

Json filtersJson(const std::map<std::string, bool>& filters) {
  Json json = Json::object();
  for (const auto& [name, on] : filters) json.set(name, on);
  return json;
}

/// The object of a reply that says it succeeded.
Result<Json> answerOf(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  auto json = Json::parse(response->body);
  if (!json || !json->isObject()) {
    return fail(liveContextDomain, liveContextNotJson, "Invalid response data");
  }
  if (!json->boolAt("success").value_or(false)) {
    return fail(liveContextDomain, liveContextRefused, json->stringAt("error", "Unknown error"));
  }
  return std::move(*json);
}

}  // namespace

bool FeedbackPacing::wantsFeedback(const std::string& transcript, size_t characters,
                                   SteadyTime now) {
  const size_t hash = std::hash<std::string>{}(transcript);
  const bool changed = std::exchange(lastTranscriptHash_, hash) != hash;
  const bool due = !lastRequestAt_ || now - *lastRequestAt_ > unchangedInterval;
  return !inFlight_ && characters > mostSilentCharacters && (due || changed);
}

void FeedbackPacing::asked(SteadyTime now) {
  inFlight_ = true;
  lastRequestAt_ = now;
}

struct LiveContextClient::Core {
  const QueueRef main;
  const std::shared_ptr<HttpSession> session;
  const SettingsStore& settings;
  DeviceIdManager& deviceId;
  GeminiKeyManager& geminiKey;
  const UserPreferences& preferences;
  const std::string baseURL;

  Json body(const LiveContextRequest& request) {
    const auto prompts = preferences.liveAssistPrompts();
    const auto prompt = prompts.find(rawValue(request.useCase));
    const std::string key = geminiKey.apiKey();
    const auto modelUrl = settings.get("pref_llmEndpoint");
    return Json::object(
        {{"device_user_id", deviceId.deviceId()},
         {"contact_email", orNull(request.contactEmail)},
         {"transcript", request.transcript},
         {"documents", Json(request.documents)},
         {"generateFeedback", request.generateFeedback},
         {"use_case", rawValue(request.useCase)},
         {"custom_prompt", prompt == prompts.end() ? std::string() : prompt->second},
         {"filters", filtersJson(request.filters)},
         {"pinnedItems", Json(request.pinnedItems)},
         {"gemini_api_key", key.empty() ? Json() : Json(key)},
         {"custom_llm_url", orNull(modelUrl ? modelUrl->asString() : std::nullopt)},
         {"use_local_llm", settings.boolean("pref_useLocalLLM")}});
  }

  void send(HttpRequest request, Completion completion) {
    request.timeout = timeout;
    request.setHeader("X-Device-Id", deviceId.deviceId());
    session->data(std::move(request), [main = main, completion = std::move(completion)](
                                          const Result<HttpResponse>& response) {
      main->post([completion, answer = answerOf(response)] { completion(answer); });
    });
  }
};

LiveContextClient::LiveContextClient(Dispatch& dispatch, Http& http, const SettingsStore& settings,
                                     DeviceIdManager& deviceId, GeminiKeyManager& geminiKey,
                                     const UserPreferences& preferences, const Endpoints& endpoints)
    : queue_(dispatch.makeQueue("com.kestrin.live-context")),
      core_(std::make_shared<Core>(
          Core{dispatch.mainQueue(),
               http.makeSession({.requestTimeout = timeout,
                                 .resourceTimeout = timeout,
                                 // Every tick of a slow backend has a connection to itself.
                                 .maximumConnectionsPerHost = 12,
                                 .maximumBodyBytes = largestAnswer}),
               settings, deviceId, geminiKey, preferences, endpoints.backend})) {}

void LiveContextClient::refresh(LiveContextRequest request, Completion completion) {
  queue_->post([weak = std::weak_ptr<Core>(core_), request = std::move(request),
                completion = std::move(completion)]() mutable {
    const auto core = weak.lock();
    if (!core) return;
    core->send(jsonPost(core->baseURL + "/memory/live-context", core->body(request).dump()),
               std::move(completion));
  });
}

void LiveContextClient::contactContext(const std::string& email, const std::string& name,
                                       Completion completion) {
  queue_->post([weak = std::weak_ptr<Core>(core_), email, name,
                completion = std::move(completion)]() mutable {
    const auto core = weak.lock();
    if (!core) return;
    const std::string query = "?device_user_id=" + urlEncode(core->deviceId.deviceId()) +
                              "&email=" + urlEncode(email) + "&name=" + urlEncode(name);
    core->send(HttpRequest{.url = core->baseURL + "/memory/contact-context" + query},
               std::move(completion));
  });
}

}  // namespace kestrin
