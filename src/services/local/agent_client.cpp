#include "services/local/agent_client.h"

#include <utility>

namespace kestrin {
namespace {

constexpr const char* domain = "AgentClient";

Result<AgentAnswer> answerOf(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  const auto json = Json::parse(response->body);
  const bool isObject = json && json->isObject();
  if (response->status < 200 || response->status > 299) {
    auto description = "The agent answered with status " + std::to_string(response->status);
    if (isObject) {
      const auto detail = json->stringAt("error", json->stringAt("detail", ""));
      if (!detail.empty()) description += ": " + detail;
    }
    return fail(domain, agentBadStatus, description);
  }
  if (response->body.empty()) return fail(domain, agentNoData, "No data from agent");
  if (!isObject) return fail(domain, agentNotJson, "Invalid JSON response from agent");
  return AgentAnswer::fromJson(*json);
}

}  // namespace

AgentAnswer AgentAnswer::fromJson(const Json& json) {
  return {json.boolAt("success").value_or(false), json.stringAt("processed_text"),
          json.stringAt("transcript"), json.stringAt("error")};
}

Result<std::string> AgentAnswer::text() const {
  if (success && processedText && !processedText->empty()) return *processedText;
  const bool said = error && !error->empty();
  return fail(domain, agentNoSuccess, said ? *error : "Agent processing failed");
}

AgentClient::AgentClient(Http& http, const Endpoints& endpoints)
    : url_(endpoints.agent + "/process"), session_(http.makeSession({})) {}

void AgentClient::process(const Json& body, QueueRef queue, Completion completion,
                          std::chrono::milliseconds timeout) {
  if (!isHttpUrl(url_)) {
    queue->post([completion = std::move(completion)] {
      completion(fail(domain, agentBadUrl, "Invalid agent URL"));
    });
    return;
  }
  HttpRequest request = jsonPost(url_, body.dump());
  request.timeout = timeout;
  session_->data(std::move(request),
                 [queue, completion = std::move(completion)](const Result<HttpResponse>& response) {
                   queue->post([completion, answer = answerOf(response)] { completion(answer); });
                 });
}

void setModelFields(Json& body, const SettingsStore& settings, GeminiKeyManager& geminiKey) {
  if (const auto key = geminiKey.apiKey(); !key.empty()) body.set("gemini_api_key", key);
  if (const auto url = settings.get("pref_llmEndpoint"); url && url->stringPtr()) {
    body.set("custom_llm_url", *url);
  }
  body.set("use_local_llm", settings.boolean("pref_useLocalLLM"));
}

}  // namespace kestrin
