#include "research/research_stream.h"

#include <utility>

namespace kestrin {

void ResearchStream::Running::cancel() {
  HttpTaskRef running;
  {
    const std::lock_guard lock(mutex);
    cancelled = true;
    running = std::move(task);
  }
  if (running) running->cancel();
}

void ResearchStream::start(HttpRequest request, std::shared_ptr<ResearchStreamDelegate> delegate,
                           Logger& logger) {
  HttpStreamHandlers handlers;
  // The status decides nothing; without it nobody could tell why a stream held no answer.
  handlers.onResponse = [&logger](int status, const HttpHeaders&) {
    if (status < 400) return;
    logger.log("Research", LogLevel::warning,
               "Research stream answered with status " + std::to_string(status));
  };
  handlers.onData = [running = running_, delegate](std::string_view bytes) {
    if (!delegate->didReceive(bytes)) running->cancel();
  };
  handlers.onComplete = [delegate](const std::optional<Error>& error) {
    delegate->didComplete(error);
  };
  {
    const std::lock_guard lock(running_->mutex);
    if (running_->cancelled) return;
  }
  HttpTaskRef task = session_->stream(std::move(request), std::move(handlers));
  {
    const std::lock_guard lock(running_->mutex);
    if (!running_->cancelled) {
      running_->task = std::move(task);
      return;
    }
  }
  task->cancel();
}

void ResearchStream::cancel() { running_->cancel(); }

}  // namespace kestrin
