#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "companion/agent/language_model.h"
#include "companion/assist/feedback.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin::assist {

/// What a language model says of a conversation. Thread-safe.
class ModelFeedback {
 public:
  /// The application waits thirty seconds; an answer by rules must still reach it.
  static constexpr std::chrono::seconds patience{24};

  /// `hostedBaseUrl`: see agent::endpointFor. `log` gets one line a failure, from any thread.
  ModelFeedback(Dispatch& dispatch, agent::LanguageModel& model, std::string hostedBaseUrl,
                std::function<void(std::string)> log);

  /// `body`: the request of the live context; `known`: what is remembered of the contact. The
  /// completion runs once, on any thread, also before this returns: nothing when no model is
  /// configured or it said nothing of use in time. Returns what ends the question early.
  Job ask(const Json& body, const std::string& known,
          std::function<void(std::optional<Feedback>)> completion);

 private:
  struct Question;

  Dispatch& dispatch_;
  agent::LanguageModel& model_;
  const std::string hostedBaseUrl_;
  const std::function<void(std::string)> log_;
  const QueueRef queue_;
};

/// What the model is told. Exposed for tests.
agent::ModelPrompt feedbackPrompt(const Json& body, const std::string& known);
/// Reads a model's answer: the JSON object in it, whatever stands around it. Nothing when there is
/// none or it says nothing.
std::optional<Feedback> feedbackIn(const std::string& answer);

}  // namespace kestrin::assist
