#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/bytes.h"
#include "platform/dispatch/dispatch.h"
#include "platform/result.h"

namespace kestrin {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
  std::string method = "GET";
  std::string url;
  HttpHeaders headers;
  Bytes body;
  /// Longest time without any progress (connect, send, or between arrivals of data). Zero takes the
  /// session's.
  std::chrono::milliseconds timeout{0};

  void setHeader(std::string_view name, std::string_view value);
};

struct HttpResponse {
  int status = 0;
  HttpHeaders headers;
  Bytes body;

  /// First header of that name (any case), or empty.
  std::string header(std::string_view name) const;
};

struct HttpSessionConfiguration {
  std::chrono::milliseconds requestTimeout{60'000};
  /// Bounds a whole exchange, from start to last byte. Zero: no bound.
  std::chrono::milliseconds resourceTimeout{0};
  int maximumConnectionsPerHost = 6;
  /// A body larger than this fails `data` requests instead of filling memory.
  size_t maximumBodyBytes = 256u << 20;
  /// Asked with each numeric address before a connection is made to it, redirects included, on the
  /// network's thread; a refused one cannot be connected to. Such a session uses no proxy. Sessions
  /// of one Http share their connections: give it an Http of its own.
  std::function<bool(std::string_view address)> admitsAddress;
};

/// A running request. Dropping the handle does not cancel it.
class HttpTask {
 public:
  virtual ~HttpTask() = default;
  /// The completion runs with `httpCancelled` on the session's queue, and nothing else follows;
  /// without effect once it ran. From any thread.
  virtual void cancel() = 0;
};
using HttpTaskRef = std::shared_ptr<HttpTask>;

/// Codes of errors in the domain "HTTP". Error statuses (4xx, 5xx) are not errors here.
enum HttpErrorCode {
  httpBadUrl = 1,
  httpCannotConnect = 2,
  httpTimedOut = 3,
  httpConnectionLost = 4,
  httpCancelled = 5,
  httpBadResponse = 6,
  httpTooLarge = 7,
  httpFile = 8,
};

struct HttpStreamHandlers {
  std::function<void(int status, const HttpHeaders&)> onResponse;
  /// Bytes as they arrive, cut anywhere.
  std::function<void(std::string_view)> onData;
  /// Once, after the last data.
  std::function<void(std::optional<Error>)> onComplete;
};

/// Reuses connections; delivers every callback on its own serial `queue()`, in order. Thread-safe.
/// Requests go to http and https addresses only. A request still running when the session is
/// destroyed is cancelled, without a callback.
class HttpSession {
 public:
  virtual ~HttpSession() = default;
  virtual QueueRef queue() const = 0;
  virtual HttpTaskRef data(HttpRequest request,
                           std::function<void(Result<HttpResponse>)> completion) = 0;
  virtual HttpTaskRef stream(HttpRequest request, HttpStreamHandlers handlers) = 0;
  /// Writes the body of a 2xx answer to `path` (atomically, once complete) and leaves it out of the
  /// response; any other answer writes nothing and keeps its body. `onProgress` gets received and
  /// total bytes of the file (total 0 when unknown).
  virtual HttpTaskRef download(HttpRequest request, std::string path,
                               std::function<void(int64_t, int64_t)> onProgress,
                               std::function<void(Result<HttpResponse>)> completion) = 0;
};

class Http {
 public:
  virtual ~Http() = default;
  virtual std::shared_ptr<HttpSession> makeSession(
      const HttpSessionConfiguration& configuration) = 0;
};

/// "a b&c" to "a%20b%26c": for one path segment or query value. What stands in `kept` stays too.
std::string urlEncode(std::string_view text, std::string_view kept = {});
/// A POST of a JSON text with its content type.
HttpRequest jsonPost(std::string url, std::string body);
/// True for an absolute http or https address with a host.
bool isHttpUrl(std::string_view url);

}  // namespace kestrin
