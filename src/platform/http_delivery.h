#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/http.h"

namespace kestrin {

/// What came from the network in one go. Parts that did not come are empty; they are handed on in
/// the order head, data, end.
struct HttpArrival {
  int status = 0;  ///< 0: the response's head is not in this arrival
  HttpHeaders headers{};
  Bytes data{};
  bool ended = false;
  std::optional<Error> error{};

  bool empty() const { return status == 0 && data.empty() && !ended; }
};

/// Takes one response on the session's queue: a stream's handlers, a whole body, or a file. An
/// error returned from `head` or `data` ends the exchange with that error.
class HttpSink {
 public:
  virtual ~HttpSink() = default;
  virtual std::optional<Error> head(int status, const HttpHeaders& headers) = 0;
  virtual std::optional<Error> data(std::string_view bytes) = 0;
  /// Once, last.
  virtual void end(std::optional<Error> error) = 0;
};

/// Hands everything on as it comes.
std::unique_ptr<HttpSink> makeStreamSink(HttpStreamHandlers handlers);
/// Collects the body; one larger than `limit` fails with `httpTooLarge`.
std::unique_ptr<HttpSink> makeBodySink(size_t limit,
                                       std::function<void(Result<HttpResponse>)> completion);

/// Where a download goes: visible whole after `commit`, not at all without it.
class HttpFile {
 public:
  virtual ~HttpFile() = default;
  virtual Status write(std::string_view bytes) = 0;
  virtual Status commit() = 0;
};
/// Writes the body of a 2xx answer to the file that `open` makes; keeps any other answer's body, up
/// to `limit`.
std::unique_ptr<HttpSink> makeFileSink(size_t limit,
                                       std::function<Result<std::unique_ptr<HttpFile>>()> open,
                                       std::function<void(int64_t, int64_t)> onProgress,
                                       std::function<void(Result<HttpResponse>)> completion);

/// The half of an exchange that faces the caller, the same for every backend: order, cancellation
/// and the end of the session are decided here, on the session's queue. Thread-safe.
class HttpDelivery final : public HttpTask, public std::enable_shared_from_this<HttpDelivery> {
 public:
  struct Hooks {
    /// The backend should stop the exchange; nothing that it still delivers will be heard.
    std::function<void()> abandon;
    /// So many bytes of data were handed to the sink (for flow control).
    std::function<void(size_t)> consumed;
  };
  /// Once `*closed` is set nothing is called any more.
  HttpDelivery(QueueRef queue, std::shared_ptr<const std::atomic<bool>> closed,
               std::unique_ptr<HttpSink> sink);
  /// Before the first arrival.
  void setHooks(Hooks hooks) { hooks_ = std::move(hooks); }

  /// Posts one job for the whole arrival. Called by the backend, in order.
  void arrive(HttpArrival arrival);
  /// Lets go of the sink without a call, on the queue that it belongs to.
  void drop();
  void cancel() override;

 private:
  void handOn(const HttpArrival& arrival);
  void finish(std::optional<Error> error);

  const QueueRef queue_;
  const std::shared_ptr<const std::atomic<bool>> closed_;
  Hooks hooks_;
  std::atomic<bool> cancelled_{false};
  std::unique_ptr<HttpSink> sink_;  ///< touched on the queue only; null once it has ended
};

/// The errors of the domain "HTTP" in words that a user can read. `peer` is "host:port".
Error httpError(HttpErrorCode code, std::string_view peer = {});

}  // namespace kestrin
