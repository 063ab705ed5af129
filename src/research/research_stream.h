#pragma once

#include <memory>
#include <mutex>

#include "diagnostics/logger.h"
#include "platform/http.h"
#include "research/research_stream_delegate.h"

namespace kestrin {

/// One question's exchange with the agent, on a session of its own. Thread-safe.
class ResearchStream {
 public:
  ResearchStream(Http& http, const HttpSessionConfiguration& configuration)
      : session_(http.makeSession(configuration)) {}
  /// Cancels; the delegate hears nothing more but what runs at this moment.
  ~ResearchStream() = default;

  /// Sends the request, unless it was cancelled before. Once.
  void start(HttpRequest request, std::shared_ptr<ResearchStreamDelegate> delegate, Logger& logger);
  void cancel();

 private:
  /// The running exchange, which the delegate's deliveries may have to end themselves.
  struct Running {
    std::mutex mutex;
    HttpTaskRef task;
    bool cancelled = false;

    void cancel();
  };

  std::shared_ptr<Running> running_ = std::make_shared<Running>();
  std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
