#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/http.h"
#include "platform/json/json.h"

namespace kestrin::agent {

/// Where a language model answers.
struct ModelEndpoint {
  enum class Kind { chatCompletions, gemini };
  Kind kind = Kind::chatCompletions;
  std::string baseUrl;  ///< without a trailing slash
  std::string key;      ///< sent in a header; may be empty

  bool operator==(const ModelEndpoint&) const = default;
};

/// The model that a request asks for: `custom_llm_url` (a server with the chat-completions
/// interface), or the hosted one when `gemini_api_key` is there. With both, `use_local_llm`
/// chooses. Nothing when neither is configured. `hostedBaseUrl` is the hosted model's address.
std::optional<ModelEndpoint> endpointFor(const Json& body, const std::string& hostedBaseUrl);

struct ModelPrompt {
  std::string system;
  std::string user;
  double temperature = 0.0;
};

/// Streams a model's answer. Callbacks arrive on the session's queue. Thread-safe.
class LanguageModel {
 public:
  explicit LanguageModel(std::shared_ptr<HttpSession> session) : session_(std::move(session)) {}

  struct Handlers {
    std::function<void(std::string)> onText;  ///< pieces, never empty
    /// Once. Errors: the transport's, or domain "LanguageModel" (1: error status, 2: an error in
    /// the stream, 3: ended without an answer).
    std::function<void(std::optional<Error>)> onEnd;
  };
  /// Cancelling the token ends the stream; `onEnd` is then called with the transport's error.
  struct Cancel {
    std::mutex mutex;
    HttpTaskRef task;
    bool cancelled = false;
    void operator()();
  };
  void stream(const ModelEndpoint& endpoint, const ModelPrompt& prompt,
              const std::shared_ptr<Cancel>& cancel, Handlers handlers);

  /// Whether a chat-completions server answers at this address now.
  void probe(const std::string& baseUrl, std::function<void(bool)> completion);

 private:
  static void open(HttpSession& session, const ModelEndpoint& endpoint, const std::string& model,
                   const ModelPrompt& prompt, const std::shared_ptr<Cancel>& cancel,
                   Handlers handlers);

  std::shared_ptr<HttpSession> session_;
  /// Model names by address: some servers refuse a request without one. Shared with pending
  /// look-ups.
  struct Names {
    std::mutex mutex;
    std::map<std::string, std::string> byBase;
  };
  std::shared_ptr<Names> names_ = std::make_shared<Names>();
};

/// The text in one event of a stream, of either kind; empty when it holds none. Exposed for tests.
std::string textOfEvent(ModelEndpoint::Kind kind, const Json& event);

}  // namespace kestrin::agent
