#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "companion/agent/language_model.h"

namespace kestrin::agent {

/// One question to a language model, over as many attempts as it takes. Everything after `begin`
/// happens on the session's queue; the running attempt, or the pause before the next one, keeps the
/// call alive. When the session goes it ends without a word, as every request of the session does.
class ModelCall : public std::enable_shared_from_this<ModelCall> {
 public:
  /// Before the application, which waits two minutes for a sign, gives the companion up.
  static constexpr std::chrono::seconds firstWordPatience{100};
  /// The application gives a whole answer five minutes.
  static constexpr std::chrono::seconds wholePatience{280};
  static constexpr int attempts = 3;
  static constexpr std::chrono::milliseconds firstPause{500};  ///< each later one is twice as long
  /// A server that wants to be left alone for longer is not asked again.
  static constexpr std::chrono::milliseconds longestPause{10'000};

  static void begin(const std::shared_ptr<HttpSession>& session, ModelEndpoint::Kind kind,
                    HttpRequest request, std::shared_ptr<LanguageModel::Cancel> cancel,
                    LanguageModel::Handlers handlers);

 private:
  struct Outcome {
    Error error;
    bool mayPass = false;  ///< it is worth asking again
  };

  ModelCall() = default;
  void attempt(HttpSession& session);
  void data(std::string_view bytes);
  void line(std::string_view line);
  void attemptEnded(std::optional<Error> transport);
  std::optional<Outcome> outcome(const std::optional<Error>& transport);
  Outcome refusal();
  std::optional<std::chrono::milliseconds> pauseBeforeNext() const;
  void pause(std::chrono::milliseconds length);
  void pauseOver(int attempt);
  /// This side's own end, for what a server can do for ever.
  void giveUp(LanguageModelError code, std::string why);
  void end(std::optional<Error> error);

  QueueRef queue_;
  std::weak_ptr<HttpSession> session_;
  ModelEndpoint::Kind kind_ = ModelEndpoint::Kind::chatCompletions;
  HttpRequest request_;
  std::shared_ptr<LanguageModel::Cancel> cancel_;
  LanguageModel::Handlers handlers_;
  int attempt_ = 0;
  bool paused_ = false;
  bool anyText_ = false;
  bool ended_ = false;
  std::optional<Error> verdict_;  ///< why this side gave up

  // Of the running attempt.
  int status_ = 0;
  HttpHeaders headers_;
  std::string buffer_;
  std::optional<Outcome> reported_;                 ///< an error that came as an event
  std::optional<std::chrono::milliseconds> asked_;  ///< the pause that the server wants
};

/// What a `Retry-After` asks for: seconds, or a date, which is held against the answer's own `Date`
/// (so that nobody's clock matters). Nothing when there is none that can be read.
std::optional<std::chrono::milliseconds> retryAfter(const HttpHeaders& headers);

}  // namespace kestrin::agent
