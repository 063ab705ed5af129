#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "companion/home/news.h"
#include "companion/home/triggers.h"
#include "companion/http/server.h"
#include "platform/http.h"
#include "platform/system_speech.h"

namespace kestrin::home {

/// `POST /tts`, `GET /weather` and `POST /triggers/evaluate` on the agent's port, and the news that
/// `/process` tells.
class HomeService {
 public:
  struct Options {
    std::string weatherUrl;             ///< where the weather is asked; empty: it is not
    std::vector<std::string> newsUrls;  ///< of RSS or Atom feeds
  };
  /// When there was last a dictation at a device; answers once, from any thread.
  using LastDictation =
      std::function<void(const std::string& deviceId, std::function<void(std::optional<Date>)>)>;

  /// All of these must outlive this.
  HomeService(Dispatch& dispatch, Http& http, SystemSpeech& speech, Options options);
  /// Waits for what is under way. The server must have gone before.
  ~HomeService();

  void useHistory(LastDictation lastDictation) { lastDictation_ = std::move(lastDictation); }
  void addRoutes(server::Server& server);

  /// The newest of the user's feeds, at most six; an error when none is named or none answers. The
  /// completion runs once, on any thread.
  void news(std::function<void(Result<std::vector<NewsItem>>)> completion);

 private:
  void speak(const server::Request& request, const server::Responder& responder);
  void weather(const server::Request& request, const server::Responder& responder);
  void triggers(const server::Request& request, const server::Responder& responder);

  Dispatch& dispatch_;
  SystemSpeech& speech_;
  const Options options_;
  const std::shared_ptr<HttpSession> session_;
  const QueueRef speechQueue_, queue_;
  const std::shared_ptr<Triggers> rules_ = std::make_shared<Triggers>();  ///< on `queue_`
  LastDictation lastDictation_;
};

}  // namespace kestrin::home
