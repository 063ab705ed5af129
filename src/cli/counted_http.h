#pragma once

#include <memory>
#include <utility>

#include "platform/http.h"

namespace kestrin::cli {

/// HTTP whose requests are counted, so that a recording can wait for their answers.
class CountedHttp final : public Http {
 public:
  CountedHttp(Http& http, Group group) : http_(http), group_(std::move(group)) {}

  std::shared_ptr<HttpSession> makeSession(const HttpSessionConfiguration& configuration) override {
    return std::make_shared<Session>(http_.makeSession(configuration), group_);
  }

 private:
  class Session final : public HttpSession {
   public:
    Session(std::shared_ptr<HttpSession> session, Group group)
        : session_(std::move(session)), group_(std::move(group)) {}

    QueueRef queue() const override { return session_->queue(); }
    HttpTaskRef data(HttpRequest request,
                     std::function<void(Result<HttpResponse>)> completion) override {
      return session_->data(std::move(request), counted(std::move(completion)));
    }
    HttpTaskRef stream(HttpRequest request, HttpStreamHandlers handlers) override {
      handlers.onComplete = counted(std::move(handlers.onComplete));
      return session_->stream(std::move(request), std::move(handlers));
    }
    HttpTaskRef download(HttpRequest request, std::string path,
                         std::function<void(int64_t, int64_t)> onProgress,
                         std::function<void(Result<HttpResponse>)> completion) override {
      return session_->download(std::move(request), std::move(path), std::move(onProgress),
                                counted(std::move(completion)));
    }

   private:
    /// Counts until the completion has run, or was dropped with its session.
    template <class T>
    std::function<void(T)> counted(std::function<void(T)> completion) const {
      struct Token {
        explicit Token(Group g) : group(std::move(g)) { group.enter(); }
        ~Token() { group.leave(); }
        Token(const Token&) = delete;
        Token& operator=(const Token&) = delete;
        Group group;
      };
      return [token = std::make_shared<Token>(group_),
              completion = std::move(completion)](T value) { completion(std::move(value)); };
    }

    const std::shared_ptr<HttpSession> session_;
    const Group group_;
  };

  Http& http_;
  const Group group_;
};

}  // namespace kestrin::cli
