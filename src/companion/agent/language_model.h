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

/// Codes of errors in the domain "LanguageModel".
enum LanguageModelError {
  modelRefused = 1,  ///< an error status
  modelFailed = 2,   ///< an error within the stream, or one that is no stream
  modelSilent = 3,   ///< it ended without an answer
  modelTooSlow = 4,  ///< no word, or no end, in the time there is
};

/// Streams a model's answer. What fails before the first word for a reason that may pass (no
/// connection, status 429 or 5xx) is tried again twice, after a pause or after the one that the
/// server asks for; once text was given out nothing is asked again. Callbacks arrive on the
/// session's queue. Thread-safe.
class LanguageModel {
 public:
  explicit LanguageModel(std::shared_ptr<HttpSession> session) : session_(std::move(session)) {}

  struct Handlers {
    std::function<void(std::string)> onText;  ///< pieces, never empty
    /// Once, the last attempt's outcome. Errors: the transport's, or domain "LanguageModel" (see
    /// LanguageModelError).
    std::function<void(std::optional<Error>)> onEnd;
  };
  /// Cancelling the token ends the stream, also between two attempts; `onEnd` is then called with
  /// the transport's error.
  struct Cancel {
    std::mutex mutex;
    HttpTaskRef task;
    Job wake;  ///< ends a pause
    bool cancelled = false;
    void operator()();
  };
  void stream(const ModelEndpoint& endpoint, const ModelPrompt& prompt,
              const std::shared_ptr<Cancel>& cancel, Handlers handlers);

  /// Whether a chat-completions server answers at this address now.
  void probe(const std::string& baseUrl, std::function<void(bool)> completion);

 private:
  /// Model names by address: some servers refuse a request without one. Shared with pending
  /// look-ups.
  struct Names {
    std::mutex mutex;
    std::map<std::string, std::string> byBase;
  };
  static void open(const std::shared_ptr<HttpSession>& session, const std::shared_ptr<Names>& names,
                   const ModelEndpoint& endpoint, const std::string& model,
                   const ModelPrompt& prompt, const std::shared_ptr<Cancel>& cancel,
                   Handlers handlers);

  std::shared_ptr<HttpSession> session_;
  std::shared_ptr<Names> names_ = std::make_shared<Names>();
};

/// The text in one event of a stream, of either kind; empty when it holds none. Exposed for tests.
std::string textOfEvent(ModelEndpoint::Kind kind, const Json& event);

}  // namespace kestrin::agent
