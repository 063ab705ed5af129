#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "identity/gemini_key_manager.h"
#include "platform/http.h"
#include "platform/json/json.h"
#include "platform/settings.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// What the agent made of a text, tolerantly read: what is absent or of another type is left out.
struct AgentAnswer {
  bool success = false;
  std::optional<std::string> processedText;
  std::optional<std::string> transcript;
  std::optional<std::string> error;

  static AgentAnswer fromJson(const Json& json);
  /// The processed text of an agent that says it succeeded and gives one; else its own error, or
  /// "Agent processing failed".
  Result<std::string> text() const;
};

/// Codes of errors in the domain "AgentClient".
enum AgentErrorCode {
  agentBadUrl = 1,     ///< "Invalid agent URL"
  agentNoData = 2,     ///< "No data from agent"
  agentNotJson = 3,    ///< "Invalid JSON response from agent"
  agentBadStatus = 4,  ///< "The agent answered with status 500", and what it says of it
  agentNoSuccess = 5,  ///< the agent's `error`, or "Agent processing failed"
};

/// The agent's non-streaming call, `POST /process`: one text in, one text out. Keeps no state:
/// every call is one independent request, from any thread. Dropping the client cancels what runs,
/// without a completion. Errors: domain "AgentClient", or the transport's, unchanged. No retry
/// here.
class AgentClient {
 public:
  static constexpr std::chrono::milliseconds usualTimeout{30'000};
  using Completion = std::function<void(Result<AgentAnswer>)>;

  AgentClient(Http& http, const Endpoints& endpoints);

  /// Sends `body` (`transcript`, `mode`, `user_id`, ...). The completion runs once, on `queue`.
  void process(const Json& body, QueueRef queue, Completion completion,
               std::chrono::milliseconds timeout = usualTimeout);

  const std::string& url() const { return url_; }

 private:
  const std::string url_;
  std::shared_ptr<HttpSession> session_;
};

/// Says which language model is to be used: `gemini_api_key` when there is one, `custom_llm_url`
/// when "pref_llmEndpoint" is a text, `use_local_llm` always. The secret store can keep the caller
/// waiting: off the main queue.
void setModelFields(Json& body, const SettingsStore& settings, GeminiKeyManager& geminiKey);

}  // namespace kestrin
