#include "companion/http/server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <netinet/tcp.h>
#include <set>
#include <sys/socket.h>
#include <unistd.h>

#include "companion/http/crowd.h"
#include "companion/http/exchange.h"
#include "companion/http/guard.h"
#include "platform/text/text.h"

namespace kestrin::server {

namespace {

// How often the server looks whether the clients of suspended connections are still there.
constexpr std::chrono::milliseconds watchInterval{200};

// What a client only announces takes no memory yet.
constexpr uint64_t mostReserved = 1u << 20;

using Holder = std::shared_ptr<Exchange>;

MHD_Result collect(void* target, MHD_ValueKind kind, const char* name, const char* value) {
  auto& map = *static_cast<std::map<std::string, std::string>*>(target);
  const std::string key = kind == MHD_HEADER_KIND ? text::lower(name) : name;
  const auto [place, isNew] = map.try_emplace(key, value == nullptr ? "" : value);
  // A repeated header is a list; a repeated Host thus never passes for a good one.
  if (!isNew && kind == MHD_HEADER_KIND)
    place->second.append(", ").append(value == nullptr ? "" : value);
  return MHD_YES;
}

Result<int> listenOn(const std::string& address, uint16_t port) {
  sockaddr_in target{};
  target.sin_family = AF_INET;
  target.sin_port = htons(port);
  if (inet_pton(AF_INET, address.c_str(), &target.sin_addr) != 1) {
    return fail("Server", EINVAL, "\"" + address + "\" is not an IPv4 address");
  }
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  const int on = 1;
  if (fd >= 0 && setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
      bind(fd, reinterpret_cast<sockaddr*>(&target), sizeof target) == 0 &&
      listen(fd, SOMAXCONN) == 0) {
    return fd;
  }
  const int code = errno;
  if (fd >= 0) ::close(fd);
  const std::string place = address + ":" + std::to_string(port);
  if (code == EADDRINUSE) return fail("Server", code, "Port " + place + " is already in use");
  return fail("Server", code, "Cannot listen on " + place + ": " + std::strerror(code));
}

bool takesMethod(const std::string& routeMethod, const std::string& method) {
  return method == routeMethod || (method == "HEAD" && routeMethod == "GET");
}

}  // namespace

struct Server::State : std::enable_shared_from_this<State> {
  struct Route {
    std::string method;
    std::string path;  ///< without the closing `*`
    bool isPrefix = false;
    Handler handler;
  };

  State(Dispatch& dispatch, ServerOptions given)
      : options(std::move(given)),
        watchQueue(dispatch.makeQueue("companion.http.watch")),
        crowd(dispatch.clock(), options.connectionLimit) {}

  const ServerOptions options;
  const QueueRef watchQueue;
  std::vector<Route> routes;
  MHD_Daemon* daemon = nullptr;
  uint16_t port = 0;

  std::atomic<bool> stopping{false};
  std::mutex mutex;
  std::set<Holder> live;  // guarded by `mutex`
  bool watching = false;  // guarded by `mutex`
  Crowd crowd;
  std::atomic<bool> sweeping{false};

  // The daemon's callbacks; all on its thread.
  static MHD_Result onAccess(void* self, MHD_Connection* connection, const char* url,
                             const char* method, const char* version, const char* data,
                             size_t* size, void** holder);
  static void onCompleted(void* self, MHD_Connection*, void** holder,
                          MHD_RequestTerminationCode code);
  static void onConnection(void* self, MHD_Connection* connection, void** member,
                           MHD_ConnectionNotificationCode code);
  static Crowd::Member memberOf(MHD_Connection* connection);

  void begin(Exchange& exchange, MHD_Connection* connection, const char* url, const char* method);
  void judge(Exchange& exchange, uint64_t announced);
  void refuse(Exchange& exchange, int status, std::string message);
  void findRoute(Exchange& exchange);
  void serve(const Holder& exchange);
  MHD_Result dispatch(const Holder& exchange);
  void sweep();
  void add(const Holder& exchange);
  void remove(const Holder& exchange);
  void watch();
  std::vector<Holder> snapshot();
};

void Server::State::refuse(Exchange& exchange, int status, std::string message) {
  exchange.refusal = status;
  exchange.refusalText = std::move(message);
}

void Server::State::findRoute(Exchange& exchange) {
  Request& request = exchange.request;
  const Route* best = nullptr;
  for (const Route& route : routes) {
    const bool matches =
        route.isPrefix ? request.path.starts_with(route.path) : request.path == route.path;
    if (!matches) continue;
    if (!takesMethod(route.method, request.method)) {
      exchange.allow += (exchange.allow.empty() ? "" : ", ") + route.method;
      continue;
    }
    const bool longer = best != nullptr && best->isPrefix && route.path.size() > best->path.size();
    if (best == nullptr || !route.isPrefix || longer) best = &route;
  }
  if (best != nullptr) {
    exchange.allow.clear();
    exchange.handler = best->handler;
    if (best->isPrefix) request.rest = request.path.substr(best->path.size());
  } else if (!exchange.allow.empty()) {
    refuse(exchange, MHD_HTTP_METHOD_NOT_ALLOWED, "This path does not take " + request.method);
  } else {
    refuse(exchange, MHD_HTTP_NOT_FOUND, "There is nothing at " + request.path);
  }
}

void Server::State::begin(Exchange& exchange, MHD_Connection* connection, const char* url,
                          const char* method) {
  Request& request = exchange.request;
  request.method = method;
  request.path = url;
  MHD_get_connection_values(connection, MHD_HEADER_KIND, collect, &request.headers);
  MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, collect, &request.query);
  const std::string length = request.header("content-length");
  judge(exchange, std::strtoull(length.c_str(), nullptr, 10));
}

void Server::State::judge(Exchange& exchange, uint64_t announced) {
  Request& request = exchange.request;
  findRoute(exchange);
  const std::string host = request.header("host");
  if (announced > options.bodyLimit) {
    refuse(exchange, MHD_HTTP_CONTENT_TOO_LARGE,
           "The body is larger than " + std::to_string(options.bodyLimit) + " bytes");
  } else if (exchange.refusal == 0) {
    request.body.reserve(std::min(announced, mostReserved));
  }
  if (request.headers.count("origin") > 0 && !isLoopbackOrigin(request.header("origin"))) {
    refuse(exchange, MHD_HTTP_FORBIDDEN, "Requests of other origins are refused");
  }
  if (host.empty()) {
    refuse(exchange, MHD_HTTP_BAD_REQUEST, "The Host header is missing");
  } else if (!isLoopbackHost(host)) {
    refuse(exchange, MHD_HTTP_FORBIDDEN, "Only requests to this machine's loopback are answered");
  }
}

void Server::State::serve(const Holder& exchange) {
  if (exchange->refusal != 0) {
    Responder(exchange).error(exchange->refusal, exchange->refusalText);
  } else if (stopping) {
    Responder(exchange).error(MHD_HTTP_SERVICE_UNAVAILABLE, "The service is stopping");
  } else {
    exchange->handler(exchange->request, Responder(exchange));
  }
}

MHD_Result Server::State::dispatch(const Holder& exchange) {
  if (!exchange->dispatched) {
    exchange->dispatched = true;
    serve(exchange);
  }
  switch (exchange->next()) {
    case Exchange::Next::send:
      return exchange->queueAnswer(exchange);
    case Exchange::Next::wait:
      return MHD_YES;
    case Exchange::Next::drop:
      break;
  }
  return MHD_NO;
}

MHD_Result Server::State::onAccess(void* self, MHD_Connection* connection, const char* url,
                                   const char* method, const char*, const char* data, size_t* size,
                                   void** holder) {
  State& state = *static_cast<State*>(self);
  if (*holder == nullptr) {
    auto* fresh = new Holder(std::make_shared<Exchange>(connection));
    *holder = fresh;
    state.begin(**fresh, connection, url, method);
    state.add(*fresh);
    state.crowd.moved(memberOf(connection), false);
    // A body that is too large is not even read: the answer goes out at once and the connection
    // ends.
    if ((*fresh)->refusal == MHD_HTTP_CONTENT_TOO_LARGE) return state.dispatch(*fresh);
    return MHD_YES;
  }
  const Holder& exchange = *static_cast<Holder*>(*holder);
  if (*size > 0) {
    Bytes& body = exchange->request.body;
    if (exchange->refusal == 0) {
      if (body.size() + *size > state.options.bodyLimit)
        return MHD_NO;  // it did not announce its length
      body.append(data, *size);
    }
    *size = 0;
    return MHD_YES;
  }
  if (!exchange->dispatched) state.crowd.moved(memberOf(connection), true);
  return state.dispatch(exchange);
}

void Server::State::onCompleted(void* self, MHD_Connection* connection, void** holder,
                                MHD_RequestTerminationCode code) {
  auto* exchange = static_cast<Holder*>(*holder);
  if (exchange == nullptr) return;
  *holder = nullptr;
  static_cast<State*>(self)->crowd.moved(memberOf(connection), false);
  static_cast<State*>(self)->remove(*exchange);
  (*exchange)->finished(code == MHD_REQUEST_TERMINATED_COMPLETED_OK);
  delete exchange;
}

Crowd::Member Server::State::memberOf(MHD_Connection* connection) {
  void* member =
      MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context;
  return *static_cast<Crowd::Member*>(member);
}

void Server::State::onConnection(void* self, MHD_Connection* connection, void** member,
                                 MHD_ConnectionNotificationCode code) {
  State& state = *static_cast<State*>(self);
  if (code != MHD_CONNECTION_NOTIFY_STARTED) {
    auto* leaving = static_cast<Crowd::Member*>(*member);
    state.crowd.leave(*leaving);
    delete leaving;
    return;
  }
  const int fd = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  *member = new Crowd::Member(state.crowd.enter(fd));
  if (!state.sweeping.exchange(true)) state.sweep();
}

/// Seldom, and only while there are connections: an idle program must not wake up.
void Server::State::sweep() {
  watchQueue->postAfter(options.idleTimeout, [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self || self->stopping) return;
    self->sweeping = false;
    const bool anyLeft = self->crowd.shutLate(self->options.idleTimeout);
    if (anyLeft && !self->sweeping.exchange(true)) self->sweep();
  });
}

void Server::State::add(const Holder& exchange) {
  std::lock_guard lock(mutex);
  live.insert(exchange);
  if (watching) return;
  watching = true;
  watchQueue->postAfter(watchInterval, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->watch();
  });
}

void Server::State::remove(const Holder& exchange) {
  std::lock_guard lock(mutex);
  live.erase(exchange);
}

void Server::State::watch() {
  for (const Holder& exchange : snapshot()) {
    if (exchange->peerHasClosed()) exchange->abandon();
  }
  std::lock_guard lock(mutex);
  watching = !live.empty() && !stopping;
  if (!watching) return;
  watchQueue->postAfter(watchInterval, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->watch();
  });
}

std::vector<Holder> Server::State::snapshot() {
  std::lock_guard lock(mutex);
  return {live.begin(), live.end()};
}

Server::Server(Dispatch& dispatch, ServerOptions options)
    : state_(std::make_shared<State>(dispatch, std::move(options))) {}

Server::~Server() {
  if (state_->daemon == nullptr) return;
  state_->stopping = true;
  // The daemon cannot stop while a connection is suspended.
  for (const Holder& exchange : state_->snapshot()) exchange->abandon();
  MHD_stop_daemon(state_->daemon);
}

void Server::route(std::string method, std::string path, Handler handler) {
  const bool isPrefix = !path.empty() && path.back() == '*';
  if (isPrefix) path.pop_back();
  state_->routes.push_back({std::move(method), std::move(path), isPrefix, std::move(handler)});
}

std::vector<Server::RouteName> Server::routes() const {
  std::vector<RouteName> out;
  for (const State::Route& route : state_->routes)
    out.push_back({route.method, route.path + (route.isPrefix ? "*" : "")});
  return out;
}

void Server::serve(const Holder& exchange) {
  exchange->dispatched = true;
  state_->judge(*exchange, exchange->request.body.size());
  state_->serve(exchange);
}

Status Server::start() {
  const Result<int> fd = listenOn(state_->options.bindAddress, state_->options.port);
  if (!fd) return fail(fd.error());
  sockaddr_in bound{};
  socklen_t length = sizeof bound;
  getsockname(*fd, reinterpret_cast<sockaddr*>(&bound), &length);
  state_->port = ntohs(bound.sin_port);
  state_->daemon = MHD_start_daemon(
      MHD_USE_EPOLL_INTERNAL_THREAD | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr,
      &State::onAccess, state_.get(), MHD_OPTION_LISTEN_SOCKET, *fd, MHD_OPTION_CONNECTION_TIMEOUT,
      static_cast<unsigned>(state_->options.idleTimeout.count()), MHD_OPTION_CONNECTION_LIMIT,
      state_->options.connectionLimit, MHD_OPTION_CONNECTION_MEMORY_LIMIT, size_t{64 * 1024},
      MHD_OPTION_NOTIFY_COMPLETED, &State::onCompleted, state_.get(), MHD_OPTION_NOTIFY_CONNECTION,
      &State::onConnection, state_.get(), MHD_OPTION_END);
  if (state_->daemon == nullptr) {
    ::close(*fd);
    return fail("Server", EIO, "The HTTP server did not start");
  }
  return {};
}

uint16_t Server::port() const { return state_->port; }

}  // namespace kestrin::server
