#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/bytes.h"
#include "platform/dispatch/dispatch.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin::server {

/// One request, whole: the body has arrived. Header names are lower-case.
struct Request {
  std::string method;
  std::string path;  ///< percent-decoded, without the query
  std::string rest;  ///< what a route's closing `*` stood for
  std::map<std::string, std::string> query;
  std::map<std::string, std::string> headers;
  Bytes body;

  /// Empty when absent; `name` in lower case.
  std::string header(std::string_view name) const;
  std::string queryValue(std::string_view name, std::string_view fallback = "") const;
};

struct Exchange;

/// The open end of an answer that arrives in pieces. A copyable handle, usable from any thread;
/// none of its operations waits. When the last handle is dropped the stream is closed.
class ResponseStream {
 public:
  /// Queues bytes; they leave at once. Ignored after `close` and when the client has gone.
  void send(std::string_view bytes);
  /// Ends the answer after what was sent.
  void close();
  /// Breaks the connection off after what was sent, so that the client sees that the answer is not
  /// whole.
  void abort();
  bool clientGone() const;
  /// Runs `job` once when the client goes before the end (at once if it has gone already), on a
  /// thread of the server. It must not block.
  void onClientGone(Job job);

 private:
  friend class Responder;
  explicit ResponseStream(std::shared_ptr<Exchange> exchange);
  std::shared_ptr<Exchange> exchange_;
  std::shared_ptr<void> lastHandle_;
};

/// Answers one request, once, now or later, from any thread: the first answer counts. A copyable
/// handle; when the last one is dropped without an answer the client gets status 500.
class Responder {
 public:
  void json(int status, const Json& body) const;
  void text(int status, std::string contentType, Bytes body) const;
  /// `{"error": message}`.
  void error(int status, std::string_view message) const;
  /// Starts an answer in pieces with status 200 ("text/event-stream", "application/x-ndjson", ...).
  ResponseStream stream(std::string contentType) const;
  /// The request that is answered; it lives as long as this handle.
  const Request& request() const;
  /// See ResponseStream: true once the client has gone before the answer.
  bool clientGone() const;
  void onClientGone(Job job) const;

 private:
  friend class Server;
  explicit Responder(std::shared_ptr<Exchange> exchange);
  std::shared_ptr<Exchange> exchange_;
  std::shared_ptr<void> lastHandle_;
};

/// Runs on the server's own thread, so it must not block: keep the Responder and answer from
/// elsewhere.
using Handler = std::function<void(const Request&, Responder)>;

struct ServerOptions {
  /// "127.0.0.1", or "0.0.0.0" inside a container whose ports are published on loopback.
  std::string bindAddress = "127.0.0.1";
  uint16_t port = 0;  ///< 0: any free one
  size_t bodyLimit = 8u << 20;
  /// A connection on which nothing moves for so long is closed, unless the server owes it an
  /// answer. The head of a request, and then its body, must be there at most twice as long after
  /// what came before, however busily a client sends them byte by byte.
  std::chrono::seconds idleTimeout{120};
  /// When few of them are left, the connection that has waited longest for its client is closed.
  unsigned connectionLimit = 512;
};

/// A small HTTP/1.1 server for one port of this machine. Only requests that name this machine
/// (`Host`: 127.0.0.1, localhost or [::1], any port) and come from no web page of another origin
/// get through: a page in the user's browser, or a name that resolves to loopback, must not reach
/// the services. Everything else is answered here: 400, 403, 404, 405, 413.
class Server {
 public:
  /// `dispatch` serves the watch for clients that went while their answer was being made.
  Server(Dispatch& dispatch, ServerOptions options);
  /// Stops. Streams that are still open end; their handles become inert.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// `path` is exact, or ends in `*` and takes everything below. GET routes answer HEAD as well.
  /// Before `start` only.
  void route(std::string method, std::string path, Handler handler);
  struct RouteName {
    std::string method;
    std::string path;  ///< as given to `route`
  };
  /// All routes, in the order of their registration.
  std::vector<RouteName> routes() const;
  /// Errors: domain "Server", code = errno (98: the port is taken).
  Status start();
  /// The port that is listened on, after `start`.
  uint16_t port() const;

 private:
  friend class InProcessRequest;
  void serve(const std::shared_ptr<Exchange>& exchange);

  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kestrin::server
