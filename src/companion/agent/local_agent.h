#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "companion/agent/agent.h"
#include "companion/agent/language_model.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin::agent {

/// The agent of this machine. It decides what a request is for by rules, and answers with a
/// configured language model, or by shaping the speaker's own words when there is none or when the
/// model fails before its first word; the user is told of that by an action that shows a
/// notification, but of the same model not again before it has worked or an hour has gone by. A
/// model that fails later ends the answer with an error: half a text must not pass
/// for a whole one. In the mode `answerMode` there is only the model's answer or an error. Commands
/// never go to a model.
class LocalAgent final : public Agent {
 public:
  static constexpr std::chrono::hours toldAgainAfter{1};

  /// `clock` must outlive the session. `hostedBaseUrl` is where a request with a `gemini_api_key`
  /// goes. `log` gets one line a failure, from any thread.
  LocalAgent(std::shared_ptr<HttpSession> session, const Clock& clock, std::string hostedBaseUrl,
             std::function<void(std::string)> log);

  void process(const Json& body, Emit emit, std::function<void()> done, CancelRef cancel) override;

 private:
  class Outages;

  LanguageModel model_;
  std::shared_ptr<Outages> outages_;
  std::string hostedBaseUrl_;
  std::function<void(std::string)> log_;
};

/// A text in pieces of about `size` characters, cut at blanks; joined they are the text.
std::vector<std::string> pieces(const std::string& text, size_t size);

}  // namespace kestrin::agent
