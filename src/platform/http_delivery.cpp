#include "platform/http_delivery.h"

#include <cstdlib>

namespace kestrin {
namespace {

class StreamSink final : public HttpSink {
 public:
  explicit StreamSink(HttpStreamHandlers handlers) : handlers_(std::move(handlers)) {}

  std::optional<Error> head(int status, const HttpHeaders& headers) override {
    if (handlers_.onResponse) handlers_.onResponse(status, headers);
    return {};
  }
  std::optional<Error> data(std::string_view bytes) override {
    if (handlers_.onData) handlers_.onData(bytes);
    return {};
  }
  void end(std::optional<Error> error) override {
    if (handlers_.onComplete) handlers_.onComplete(std::move(error));
  }

 private:
  const HttpStreamHandlers handlers_;
};

/// Collects one response.
class BodySink final : public HttpSink {
 public:
  BodySink(size_t limit, std::function<void(Result<HttpResponse>)> completion)
      : limit_(limit), completion_(std::move(completion)) {}

  std::optional<Error> head(int status, const HttpHeaders& headers) override {
    response.status = status;
    response.headers = headers;
    return {};
  }
  std::optional<Error> data(std::string_view bytes) override {
    if (bytes.size() > limit_ - response.body.size()) return httpError(httpTooLarge);
    response.body += bytes;
    return {};
  }
  void end(std::optional<Error> error) override {
    if (!completion_) return;
    if (error) {
      completion_(fail(std::move(*error)));
    } else {
      completion_(std::move(response));
    }
  }

  HttpResponse response;

 private:
  const size_t limit_;
  const std::function<void(Result<HttpResponse>)> completion_;
};

class FileSink final : public HttpSink {
 public:
  using Open = std::function<Result<std::unique_ptr<HttpFile>>()>;
  FileSink(size_t limit, Open open, std::function<void(int64_t, int64_t)> onProgress,
           std::function<void(Result<HttpResponse>)> completion)
      : body_(limit, std::move(completion)),
        open_(std::move(open)),
        onProgress_(std::move(onProgress)) {}

  std::optional<Error> head(int status, const HttpHeaders& headers) override {
    body_.head(status, headers);
    if (status / 100 != 2) return {};
    total_ = std::strtoll(body_.response.header("Content-Length").c_str(), nullptr, 10);
    auto file = open_();
    if (!file) return fileError(file.error());
    file_ = std::move(*file);
    return {};
  }
  std::optional<Error> data(std::string_view bytes) override {
    if (!file_) return body_.data(bytes);
    if (const auto written = file_->write(bytes); !written) return fileError(written.error());
    received_ += static_cast<int64_t>(bytes.size());
    if (onProgress_) onProgress_(received_, total_);
    return {};
  }
  void end(std::optional<Error> error) override {
    if (!error && file_) {
      if (const auto done = file_->commit(); !done) error = fileError(done.error());
    }
    file_.reset();
    body_.end(std::move(error));
  }

 private:
  static Error fileError(const Error& cause) {
    Error error = httpError(httpFile);
    error.description += ": " + cause.description;
    return error;
  }

  BodySink body_;
  const Open open_;
  const std::function<void(int64_t, int64_t)> onProgress_;
  std::unique_ptr<HttpFile> file_;
  int64_t received_ = 0;
  int64_t total_ = 0;
};

}  // namespace

std::unique_ptr<HttpSink> makeStreamSink(HttpStreamHandlers handlers) {
  return std::make_unique<StreamSink>(std::move(handlers));
}

std::unique_ptr<HttpSink> makeBodySink(size_t limit,
                                       std::function<void(Result<HttpResponse>)> completion) {
  return std::make_unique<BodySink>(limit, std::move(completion));
}

std::unique_ptr<HttpSink> makeFileSink(size_t limit,
                                       std::function<Result<std::unique_ptr<HttpFile>>()> open,
                                       std::function<void(int64_t, int64_t)> onProgress,
                                       std::function<void(Result<HttpResponse>)> completion) {
  return std::make_unique<FileSink>(limit, std::move(open), std::move(onProgress),
                                    std::move(completion));
}

HttpDelivery::HttpDelivery(QueueRef queue, std::shared_ptr<const std::atomic<bool>> closed,
                           std::unique_ptr<HttpSink> sink)
    : queue_(std::move(queue)), closed_(std::move(closed)), sink_(std::move(sink)) {}

void HttpDelivery::arrive(HttpArrival arrival) {
  queue_->post(
      [self = shared_from_this(), arrival = std::move(arrival)] { self->handOn(arrival); });
}

void HttpDelivery::drop() {
  queue_->post([self = shared_from_this()] { self->sink_.reset(); });
}

void HttpDelivery::cancel() {
  if (cancelled_.exchange(true)) return;
  // Not left to the backend: the completion must not wait for a network that may be stuck.
  queue_->post([self = shared_from_this()] {
    if (self->sink_) self->finish(httpError(httpCancelled));
  });
  if (hooks_.abandon) hooks_.abandon();
}

void HttpDelivery::handOn(const HttpArrival& arrival) {
  if (!arrival.data.empty() && hooks_.consumed) hooks_.consumed(arrival.data.size());
  const auto deaf = [this] { return !sink_ || *closed_ || cancelled_; };
  std::optional<Error> refusal;
  if (arrival.status != 0 && !deaf()) refusal = sink_->head(arrival.status, arrival.headers);
  if (!arrival.data.empty() && !refusal && !deaf()) refusal = sink_->data(arrival.data);
  if (refusal && !deaf()) {
    if (hooks_.abandon) hooks_.abandon();
    finish(std::move(refusal));
  } else if (arrival.ended && !deaf()) {
    finish(arrival.error);
  }
  if (*closed_) sink_.reset();
}

void HttpDelivery::finish(std::optional<Error> error) {
  // The sink may own what owns this exchange: it lives until its last call has returned.
  const auto sink = std::move(sink_);
  if (!*closed_) sink->end(std::move(error));
}

Error httpError(HttpErrorCode code, std::string_view peer) {
  const std::string where = peer.empty() ? std::string("the server") : std::string(peer);
  std::string text;
  switch (code) {
    case httpBadUrl:
      text = "The address is not valid";
      break;
    case httpCannotConnect:
      text = "Could not connect to " + where;
      break;
    case httpTimedOut:
      text = "The request timed out";
      break;
    case httpConnectionLost:
      text = "The connection to " + where + " was lost";
      break;
    case httpCancelled:
      text = "The request was cancelled";
      break;
    case httpBadResponse:
      text = "The response of " + where + " could not be understood";
      break;
    case httpTooLarge:
      text = "The response is too large";
      break;
    case httpFile:
      text = "The file could not be written";
      break;
  }
  return {"HTTP", code, text};
}

}  // namespace kestrin
