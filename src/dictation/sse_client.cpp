#include "dictation/sse_client.h"

#include <algorithm>

namespace kestrin {

void EventStreamFramer::receive(std::string_view bytes, const OnEvent& onEvent) {
  if (overflowed_) return;
  deliveries_.receive(bytes, buffer_);

  size_t begin = 0;
  for (;;) {
    const size_t end = buffer_.find("\n\n", std::max(begin, searched_));
    if (end == std::string::npos) break;
    deliver(std::string_view(buffer_).substr(begin, end - begin), onEvent);
    begin = end + 2;
  }
  buffer_.erase(0, begin);
  // A line feed at the very end may be the first half of a blank line.
  searched_ = buffer_.empty() ? 0 : buffer_.size() - 1;
  if (buffer_.size() > maxEventBytes) {
    overflowed_ = true;
    buffer_.clear();
    searched_ = 0;
  }
}

void EventStreamFramer::finish(const OnEvent& onEvent) {
  if (!buffer_.empty()) deliver(buffer_, onEvent);
  buffer_.clear();
  deliveries_.clear();
  searched_ = 0;
}

void EventStreamFramer::deliver(std::string_view block, const OnEvent& onEvent) {
  constexpr std::string_view field = "data: ";
  while (!block.empty()) {
    const size_t end = block.find('\n');
    const std::string_view line = block.substr(0, end);
    if (line.substr(0, field.size()) == field) {
      const std::string_view data = line.substr(field.size());
      if (data != "[DONE]") onEvent(data);
    }
    if (end == std::string_view::npos) break;
    block.remove_prefix(end + 1);
  }
}

HttpSessionConfiguration SSEClient::configuration() {
  HttpSessionConfiguration out;
  out.requestTimeout = std::chrono::seconds(120);
  out.resourceTimeout = std::chrono::seconds(300);
  out.maximumConnectionsPerHost = 4;
  return out;
}

SSEClient::SSEClient(Http& http) : session_(http.makeSession(configuration())) {}

void SSEClient::stream(HttpRequest request, std::function<void(std::string_view)> onEvent,
                       std::function<void(std::optional<Error>)> onComplete,
                       std::function<void(int)> onStatus) {
  // The callbacks hold the client, and so its session, until the stream has ended.
  auto self = shared_from_this();
  HttpStreamHandlers handlers;
  handlers.onResponse = [onStatus = std::move(onStatus)](int status, const HttpHeaders&) {
    if (onStatus) onStatus(status);
  };
  handlers.onData = [self, onEvent](std::string_view bytes) {
    if (!onEvent) return;
    self->framer_.receive(bytes, onEvent);
    if (self->framer_.overflowed()) self->cancel();
  };
  handlers.onComplete = [self, onEvent,
                         onComplete = std::move(onComplete)](std::optional<Error> error) {
    if (onEvent) self->framer_.finish(onEvent);
    if (self->framer_.overflowed()) error = Error{"SSEClient", 1, "Event too large"};
    if (onComplete) onComplete(std::move(error));
    std::lock_guard lock(self->mutex_);
    self->task_ = nullptr;
  };
  HttpTaskRef task = session_->stream(std::move(request), std::move(handlers));
  std::lock_guard lock(mutex_);
  task_ = std::move(task);
}

void SSEClient::cancel() {
  HttpTaskRef task;
  {
    std::lock_guard lock(mutex_);
    task = task_;
  }
  if (task) task->cancel();
}

void SSEClient::prewarm(HttpSession& sharedSession, const std::string& url) {
  HttpRequest request;
  request.method = "HEAD";
  request.url = url;
  request.timeout = std::chrono::seconds(5);
  sharedSession.data(std::move(request), [](const Result<HttpResponse>&) {});
}

}  // namespace kestrin
