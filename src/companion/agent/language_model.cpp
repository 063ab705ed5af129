#include "companion/agent/language_model.h"

#include <utility>

#include "companion/agent/model_call.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

// Of silence, before the first byte as between two.
constexpr auto modelTimeout = std::chrono::milliseconds(60'000);
constexpr auto namesTimeout = std::chrono::milliseconds(5'000);
constexpr const char* hostedModel = "gemini-2.0-flash";

std::string withoutSlash(std::string url) {
  while (!url.empty() && url.back() == '/') url.pop_back();
  return url;
}

/// "http://127.0.0.1:8080", ".../v1" and ".../v1/chat/completions" all mean the same server.
std::string chatBase(std::string url) {
  url = withoutSlash(text::trim(url));
  for (const std::string_view ending : {"/chat/completions", "/v1"}) {
    if (url.size() > ending.size() &&
        url.compare(url.size() - ending.size(), ending.size(), ending) == 0) {
      url.resize(url.size() - ending.size());
    }
  }
  return url;
}

HttpRequest chatRequest(const ModelEndpoint& endpoint, const std::string& model,
                        const ModelPrompt& prompt) {
  Json messages = Json::array();
  messages.push(Json::object({{"role", "system"}, {"content", prompt.system}}));
  messages.push(Json::object({{"role", "user"}, {"content", prompt.user}}));
  Json body =
      Json::object({{"messages", messages}, {"temperature", prompt.temperature}, {"stream", true}});
  if (!model.empty()) body.set("model", model);
  HttpRequest request;
  request.method = "POST";
  request.url = endpoint.baseUrl + "/v1/chat/completions";
  if (!endpoint.key.empty()) request.setHeader("Authorization", "Bearer " + endpoint.key);
  request.body = body.dump();
  return request;
}

HttpRequest hostedRequest(const ModelEndpoint& endpoint, const ModelPrompt& prompt) {
  const auto parts = [](const std::string& text) {
    return Json(Json::Array{Json::object({{"text", text}})});
  };
  Json body = Json::object(
      {{"system_instruction", Json::object({{"parts", parts(prompt.system)}})},
       {"contents",
        Json(Json::Array{Json::object({{"role", "user"}, {"parts", parts(prompt.user)}})})},
       {"generationConfig", Json::object({{"temperature", prompt.temperature}})}});
  HttpRequest request;
  request.method = "POST";
  request.url =
      endpoint.baseUrl + "/v1beta/models/" + hostedModel + ":streamGenerateContent?alt=sse";
  // In a header, so that it never shows in an address that a proxy or a log keeps.
  request.setHeader("x-goog-api-key", endpoint.key);
  request.body = body.dump();
  return request;
}

}  // namespace

std::optional<ModelEndpoint> endpointFor(const Json& body, const std::string& hostedBaseUrl) {
  const std::string custom = chatBase(body.stringAt("custom_llm_url", ""));
  const std::string key = text::trim(body.stringAt("gemini_api_key", ""));
  const bool local = body.boolAt("use_local_llm").value_or(false);
  if (isHttpUrl(custom) && (local || key.empty())) {
    return ModelEndpoint{ModelEndpoint::Kind::chatCompletions, custom, ""};
  }
  if (!key.empty())
    return ModelEndpoint{ModelEndpoint::Kind::gemini, withoutSlash(hostedBaseUrl), key};
  return std::nullopt;
}

std::string textOfEvent(ModelEndpoint::Kind kind, const Json& event) {
  std::string out;
  if (kind == ModelEndpoint::Kind::chatCompletions) {
    for (const Json* choice : event.objectsAt("choices")) {
      if (const Json* delta = choice->objectAt("delta")) out += delta->stringAt("content", "");
    }
    return out;
  }
  for (const Json* candidate : event.objectsAt("candidates")) {
    const Json* content = candidate->objectAt("content");
    if (!content) continue;
    for (const Json* part : content->objectsAt("parts")) out += part->stringAt("text", "");
  }
  return out;
}

void LanguageModel::Cancel::operator()() {
  HttpTaskRef running;
  Job woken;
  {
    std::lock_guard lock(mutex);
    cancelled = true;
    running = task;
    woken = std::exchange(wake, nullptr);
  }
  if (running) running->cancel();
  if (woken) woken();
}

void LanguageModel::stream(const ModelEndpoint& endpoint, const ModelPrompt& prompt,
                           const std::shared_ptr<Cancel>& cancel, Handlers handlers) {
  if (endpoint.kind == ModelEndpoint::Kind::gemini) {
    return open(session_, names_, endpoint, hostedModel, prompt, cancel, std::move(handlers));
  }
  std::optional<std::string> known;
  {
    std::lock_guard lock(names_->mutex);
    if (const auto found = names_->byBase.find(endpoint.baseUrl); found != names_->byBase.end())
      known = found->second;
  }
  if (known) {
    return open(session_, names_, endpoint, *known, prompt, cancel, std::move(handlers));
  }
  HttpRequest request;
  request.url = endpoint.baseUrl + "/v1/models";
  request.timeout = namesTimeout;
  // The answer may come while this is being taken down.
  HttpTaskRef task = session_->data(
      request, [weak = std::weak_ptr(session_), names = names_, endpoint, prompt, cancel,
                handlers = std::move(handlers)](Result<HttpResponse> response) mutable {
        const auto session = weak.lock();
        if (!session) return;
        std::string model;
        if (response && response->status < 400) {
          const auto body = Json::parse(response->body);
          const auto models = body ? body->objectsAt("data") : std::vector<const Json*>{};
          if (!models.empty()) model = models.front()->stringAt("id", "");
          std::lock_guard lock(names->mutex);
          names->byBase[endpoint.baseUrl] = model;
        }
        open(session, names, endpoint, model, prompt, cancel, std::move(handlers));
      });
  bool cancelled = false;
  {
    std::lock_guard lock(cancel->mutex);
    // The question itself may be under way already.
    if (!cancel->task) cancel->task = task;
    cancelled = cancel->cancelled;
  }
  if (cancelled) task->cancel();
}

void LanguageModel::open(const std::shared_ptr<HttpSession>& session,
                         const std::shared_ptr<Names>& names, const ModelEndpoint& endpoint,
                         const std::string& model, const ModelPrompt& prompt,
                         const std::shared_ptr<Cancel>& cancel, Handlers handlers) {
  HttpRequest request = endpoint.kind == ModelEndpoint::Kind::gemini
                            ? hostedRequest(endpoint, prompt)
                            : chatRequest(endpoint, model, prompt);
  request.setHeader("Content-Type", "application/json");
  request.timeout = modelTimeout;
  handlers.onEnd = [names, base = endpoint.baseUrl,
                    onEnd = std::move(handlers.onEnd)](std::optional<Error> error) {
    // The server may hold another model by now.
    if (error && error->domain == "LanguageModel" && error->code == modelRefused) {
      std::lock_guard lock(names->mutex);
      names->byBase.erase(base);
    }
    onEnd(std::move(error));
  };
  ModelCall::begin(session, endpoint.kind, std::move(request), cancel, std::move(handlers));
}

void LanguageModel::probe(const std::string& baseUrl, std::function<void(bool)> completion) {
  HttpRequest request;
  request.url = chatBase(baseUrl) + "/v1/models";
  request.timeout = std::chrono::milliseconds(2'000);
  session_->data(std::move(request),
                 [completion = std::move(completion)](const Result<HttpResponse>& response) {
                   completion(response && response->status == 200);
                 });
}

}  // namespace kestrin::agent
