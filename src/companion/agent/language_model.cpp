#include "companion/agent/language_model.h"

#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

constexpr auto modelTimeout = std::chrono::milliseconds(60'000);
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

/// What one stream has seen so far.
struct Stream {
  ModelEndpoint::Kind kind = ModelEndpoint::Kind::chatCompletions;
  LanguageModel::Handlers handlers;
  int status = 0;
  std::string buffer;
  bool anyText = false;
  std::optional<Error> error;

  void line(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.substr(0, 5) != "data:") return;
    line.remove_prefix(5);
    if (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    if (line == "[DONE]") return;
    const auto event = Json::parse(line);
    if (!event) return;
    if (const Json* problem = event->objectAt("error")) {
      error =
          Error{"LanguageModel", 2, problem->stringAt("message", "the model reported an error")};
      return;
    }
    std::string piece = textOfEvent(kind, *event);
    if (piece.empty()) return;
    anyText = true;
    handlers.onText(std::move(piece));
  }

  void data(std::string_view bytes) {
    // The body of an error status is its message, kept short.
    if (status >= 400) {
      if (buffer.size() < 4096) buffer += bytes;
      return;
    }
    buffer += bytes;
    size_t begin = 0;
    for (size_t end = buffer.find('\n'); end != std::string::npos; end = buffer.find('\n', begin)) {
      line(std::string_view(buffer).substr(begin, end - begin));
      begin = end + 1;
    }
    buffer.erase(0, begin);
  }

  void end(std::optional<Error> transport) {
    if (!transport && status >= 400) {
      std::string message;
      if (const auto body = Json::parse(buffer)) {
        const Json* problem = body->objectAt("error");
        message = problem ? problem->stringAt("message", "") : body->stringAt("error", "");
      }
      transport = Error{"LanguageModel", 1,
                        "The language model answered with status " + std::to_string(status) +
                            (message.empty() ? "" : ": " + text::prefix(message, 200))};
    }
    if (!transport && !buffer.empty()) line(buffer);
    if (!transport) transport = error;
    if (!transport && !anyText)
      transport = Error{"LanguageModel", 3, "The language model gave no answer"};
    handlers.onEnd(transport);
  }
};

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
  {
    std::lock_guard lock(mutex);
    cancelled = true;
    running = task;
  }
  if (running) running->cancel();
}

void LanguageModel::stream(const ModelEndpoint& endpoint, const ModelPrompt& prompt,
                           const std::shared_ptr<Cancel>& cancel, Handlers handlers) {
  if (endpoint.kind == ModelEndpoint::Kind::gemini) {
    open(*session_, endpoint, hostedModel, prompt, cancel, std::move(handlers));
    return;
  }
  {
    std::lock_guard lock(names_->mutex);
    if (const auto known = names_->byBase.find(endpoint.baseUrl); known != names_->byBase.end()) {
      open(*session_, endpoint, known->second, prompt, cancel, std::move(handlers));
      return;
    }
  }
  HttpRequest request;
  request.url = endpoint.baseUrl + "/v1/models";
  request.timeout = std::chrono::milliseconds(5'000);
  // The answer may come while this is being taken down.
  session_->data(request, [weak = std::weak_ptr(session_), names = names_, endpoint, prompt, cancel,
                           handlers = std::move(handlers)](Result<HttpResponse> response) mutable {
    const auto session = weak.lock();
    if (!session) return;
    std::string model;
    if (response) {
      const auto body = Json::parse(response->body);
      const auto models = body ? body->objectsAt("data") : std::vector<const Json*>{};
      if (!models.empty()) model = models.front()->stringAt("id", "");
      std::lock_guard lock(names->mutex);
      names->byBase[endpoint.baseUrl] = model;
    }
    open(*session, endpoint, model, prompt, cancel, std::move(handlers));
  });
}

void LanguageModel::open(HttpSession& session, const ModelEndpoint& endpoint,
                         const std::string& model, const ModelPrompt& prompt,
                         const std::shared_ptr<Cancel>& cancel, Handlers handlers) {
  HttpRequest request = endpoint.kind == ModelEndpoint::Kind::gemini
                            ? hostedRequest(endpoint, prompt)
                            : chatRequest(endpoint, model, prompt);
  request.setHeader("Content-Type", "application/json");
  request.timeout = modelTimeout;
  auto stream = std::make_shared<Stream>();
  stream->kind = endpoint.kind;
  stream->handlers = std::move(handlers);
  std::lock_guard lock(cancel->mutex);
  if (cancel->cancelled) {
    session.queue()->post([stream] { stream->end(Error{"HTTP", httpCancelled, "cancelled"}); });
    return;
  }
  cancel->task =
      session.stream(std::move(request),
                     {[stream](int status, const HttpHeaders&) { stream->status = status; },
                      [stream](std::string_view bytes) { stream->data(bytes); },
                      [stream](std::optional<Error> error) { stream->end(std::move(error)); }});
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
