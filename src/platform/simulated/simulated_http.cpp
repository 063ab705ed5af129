#include "platform/simulated/simulated_http.h"

#include <algorithm>
#include <deque>
#include <fnmatch.h>

#include "platform/http_delivery.h"

namespace kestrin {
namespace {

/// "http://127.0.0.1:8001/a?b" to "127.0.0.1:8001/a?b".
std::string targetOf(const std::string& url) { return url.substr(url.find("://") + 3); }
std::string hostOf(const std::string& target) {
  return target.substr(0, target.find_first_of("/?#"));
}

bool matches(const std::string& pattern, const std::string& target) {
  const std::string path = target.substr(0, target.find('?'));
  return fnmatch(pattern.c_str(), path.c_str(), 0) == 0 ||
         fnmatch(pattern.c_str(), target.c_str(), 0) == 0;
}

class SimulatedDownload final : public HttpFile {
 public:
  SimulatedDownload(Files* files, std::string path) : files_(files), path_(std::move(path)) {}
  Status write(std::string_view bytes) override {
    content_ += bytes;
    return {};
  }
  Status commit() override { return files_ ? files_->writeAtomic(path_, content_) : Status(); }

 private:
  Files* const files_;
  const std::string path_;
  Bytes content_;
};

struct SessionState {
  HttpSessionConfiguration configuration;
  QueueRef queue;
  std::shared_ptr<std::atomic<bool>> closed = std::make_shared<std::atomic<bool>>(false);
  // Touched on the network queue only.
  std::map<std::string, int> active;
  std::map<std::string, std::deque<uint64_t>> waiting;
};

struct Exchange {
  std::shared_ptr<SessionState> session;
  std::shared_ptr<HttpDelivery> delivery;
  std::string host;
  Duration idleLimit{0};
  ScriptedReply reply;
  bool begun = false;
  size_t nextPiece = 0;
  TimerHandle step, idle, whole;
};

}  // namespace

/// The network: what follows `start` happens on its own queue, so that a caller never meets its own
/// callback before `data` or `stream` has returned.
class SimulatedHttp::Core : public std::enable_shared_from_this<Core> {
 public:
  Core(Dispatch& dispatch, FaultPlan* faults, Files* files)
      : dispatch(dispatch),
        files(files),
        faults_(faults),
        network_(dispatch.makeQueue("simulated.network")) {}

  HttpTaskRef start(const std::shared_ptr<SessionState>& session, std::string_view site,
                    HttpRequest request, std::unique_ptr<HttpSink> sink);
  void close(const std::shared_ptr<SessionState>& session);
  void clear() { exchanges_.clear(); }

  struct Route {
    std::string method, where;
    Handler handler;
    bool once;
  };
  void add(Route route) {
    const std::lock_guard lock(mutex_);
    routes_.push_back(std::move(route));
  }
  std::vector<SeenRequest> seen(const std::string& where) const;
  size_t running() const;
  void forgetDone();

  Dispatch& dispatch;
  Files* const files;

 private:
  Handler route(const HttpRequest& request);
  void admit(uint64_t id);
  void begin(uint64_t id);
  void answer(uint64_t id);
  void next(uint64_t id);
  void arrive(uint64_t id, HttpArrival arrival);
  void end(uint64_t id, SeenRequest::State state, std::optional<Error> error);
  void armIdle(uint64_t id);
  void later(TimerHandle& timer, Duration delay, uint64_t id, void (Core::*step)(uint64_t));
  void timeOut(uint64_t id) { end(id, SeenRequest::State::failed, httpError(httpTimedOut)); }
  void lose(uint64_t id);
  void refuse(uint64_t id);

  FaultPlan* const faults_;
  const QueueRef network_;
  mutable std::mutex mutex_;  ///< guards routes_ and seen_
  std::vector<Route> routes_;
  bool forgets_ = false;
  std::vector<SeenRequest> seen_;  ///< an exchange's id is its index
  std::map<uint64_t, Exchange> exchanges_;
};

SimulatedHttp::Handler SimulatedHttp::Core::route(const HttpRequest& request) {
  const std::string target = targetOf(request.url);
  const std::string host = hostOf(target);
  const std::lock_guard lock(mutex_);
  const auto fits = [&](const Route& route) {
    return (route.method == "*" || route.method == request.method) && matches(route.where, target);
  };
  const auto first = std::find_if(routes_.begin(), routes_.end(),
                                  [&](const Route& route) { return route.once && fits(route); });
  if (first != routes_.end()) {
    Handler handler = std::move(first->handler);
    routes_.erase(first);
    return handler;
  }
  const auto last = std::find_if(routes_.rbegin(), routes_.rend(),
                                 [&](const Route& route) { return !route.once && fits(route); });
  if (last != routes_.rend()) return last->handler;
  const bool listens = std::any_of(routes_.begin(), routes_.end(), [&](const Route& route) {
    return matches(hostOf(route.where), host);
  });
  return [listens](const HttpRequest&) {
    return listens ? ScriptedReply::body("not found", 404) : ScriptedReply::refused();
  };
}

HttpTaskRef SimulatedHttp::Core::start(const std::shared_ptr<SessionState>& session,
                                       std::string_view site, HttpRequest request,
                                       std::unique_ptr<HttpSink> sink) {
  auto delivery = std::make_shared<HttpDelivery>(session->queue, session->closed, std::move(sink));
  if (!isHttpUrl(request.url)) {
    delivery->arrive({.ended = true, .error = httpError(httpBadUrl)});
    return delivery;
  }
  Exchange exchange;
  exchange.session = session;
  exchange.delivery = delivery;
  exchange.host = hostOf(targetOf(request.url));
  exchange.idleLimit =
      request.timeout.count() > 0 ? request.timeout : session->configuration.requestTimeout;
  exchange.reply = faultDue(faults_, site) ? ScriptedReply::refused() : route(request)(request);
  if (request.method == "HEAD") exchange.reply.pieces.clear();
  uint64_t id = 0;
  {
    const std::lock_guard lock(mutex_);
    id = seen_.size();
    seen_.push_back({std::move(request), dispatch.clock().steadyNow()});
  }
  delivery->setHooks({.abandon =
                          [weak = weak_from_this(), id] {
                            const auto self = weak.lock();
                            if (!self) return;
                            self->network_->post(
                                [self, id] { self->end(id, SeenRequest::State::cancelled, {}); });
                          },
                      .consumed = {}});
  // A job must be copyable, an exchange is not.
  auto shared = std::make_shared<Exchange>(std::move(exchange));
  network_->post([self = shared_from_this(), id, shared] {
    self->exchanges_.emplace(id, std::move(*shared));
    self->admit(id);
  });
  return delivery;
}

void SimulatedHttp::Core::admit(uint64_t id) {
  Exchange& exchange = exchanges_.at(id);
  const auto& configuration = exchange.session->configuration;
  if (*exchange.session->closed) return end(id, SeenRequest::State::cancelled, {});
  if (configuration.resourceTimeout.count() > 0) {
    later(exchange.whole, configuration.resourceTimeout, id, &Core::timeOut);
  }
  if (exchange.session->active[exchange.host] < configuration.maximumConnectionsPerHost) {
    begin(id);
  } else {
    exchange.session->waiting[exchange.host].push_back(id);
  }
}

void SimulatedHttp::Core::begin(uint64_t id) {
  Exchange& exchange = exchanges_.at(id);
  exchange.begun = true;
  ++exchange.session->active[exchange.host];
  armIdle(id);
  switch (exchange.reply.head) {
    case ScriptedReply::Head::never:
      break;
    case ScriptedReply::Head::lost:
      later(exchange.step, exchange.reply.delay, id, &Core::lose);
      break;
    case ScriptedReply::Head::refused:
      later(exchange.step, exchange.reply.delay, id, &Core::refuse);
      break;
    case ScriptedReply::Head::answered:
      later(exchange.step, exchange.reply.delay, id, &Core::answer);
      break;
  }
}

void SimulatedHttp::Core::answer(uint64_t id) {
  Exchange& exchange = exchanges_.at(id);
  armIdle(id);
  exchange.delivery->arrive({.status = exchange.reply.status, .headers = exchange.reply.headers});
  const auto& pieces = exchange.reply.pieces;
  later(exchange.step, pieces.empty() ? exchange.reply.endDelay : pieces[0].delay, id, &Core::next);
}

void SimulatedHttp::Core::next(uint64_t id) {
  Exchange& exchange = exchanges_.at(id);
  const auto& pieces = exchange.reply.pieces;
  if (faultDue(faults_, "http.arrival")) return lose(id);
  if (exchange.nextPiece < pieces.size()) {
    armIdle(id);
    exchange.delivery->arrive({.data = pieces[exchange.nextPiece++].bytes});
    const bool last = exchange.nextPiece == pieces.size();
    return later(exchange.step, last ? exchange.reply.endDelay : pieces[exchange.nextPiece].delay,
                 id, &Core::next);
  }
  switch (exchange.reply.end) {
    case ScriptedReply::End::complete:
      return end(id, SeenRequest::State::answered, {});
    case ScriptedReply::End::lost:
      return lose(id);
    case ScriptedReply::End::never:
      return;
  }
}

void SimulatedHttp::Core::end(uint64_t id, SeenRequest::State state, std::optional<Error> error) {
  const auto found = exchanges_.find(id);
  if (found == exchanges_.end()) return;
  const Exchange exchange = std::move(found->second);
  exchanges_.erase(found);
  {
    const std::lock_guard lock(mutex_);
    seen_[id].state = state;
    if (forgets_) const HttpRequest dropped = std::move(seen_[id].request);
  }
  if (state == SeenRequest::State::cancelled) {
    exchange.delivery->drop();
  } else {
    exchange.delivery->arrive({.ended = true, .error = std::move(error)});
  }
  auto& waiting = exchange.session->waiting[exchange.host];
  if (exchange.begun) {
    --exchange.session->active[exchange.host];
    while (!waiting.empty()) {
      const uint64_t following = waiting.front();
      waiting.pop_front();
      if (exchanges_.count(following) == 0) continue;
      begin(following);
      break;
    }
  }
}

void SimulatedHttp::Core::close(const std::shared_ptr<SessionState>& session) {
  network_->post([self = shared_from_this(), session] {
    session->waiting.clear();
    std::vector<uint64_t> ids;
    for (const auto& [id, exchange] : self->exchanges_) {
      if (exchange.session == session) ids.push_back(id);
    }
    for (const uint64_t id : ids) self->end(id, SeenRequest::State::cancelled, {});
  });
}

void SimulatedHttp::Core::armIdle(uint64_t id) {
  Exchange& exchange = exchanges_.at(id);
  if (exchange.idleLimit.count() > 0) later(exchange.idle, exchange.idleLimit, id, &Core::timeOut);
}

void SimulatedHttp::Core::later(TimerHandle& timer, Duration delay, uint64_t id,
                                void (Core::*step)(uint64_t)) {
  timer = dispatch.after(network_, delay, [weak = weak_from_this(), id, step] {
    const auto self = weak.lock();
    if (self && self->exchanges_.count(id) != 0) ((*self).*step)(id);
  });
}

void SimulatedHttp::Core::lose(uint64_t id) {
  end(id, SeenRequest::State::failed, httpError(httpConnectionLost, exchanges_.at(id).host));
}

void SimulatedHttp::Core::refuse(uint64_t id) {
  end(id, SeenRequest::State::failed, httpError(httpCannotConnect, exchanges_.at(id).host));
}

std::vector<SeenRequest> SimulatedHttp::Core::seen(const std::string& where) const {
  const std::lock_guard lock(mutex_);
  std::vector<SeenRequest> out;
  for (const auto& request : seen_) {
    if (matches(where, targetOf(request.request.url))) out.push_back(request);
  }
  return out;
}

void SimulatedHttp::Core::forgetDone() {
  const std::lock_guard lock(mutex_);
  forgets_ = true;
}

size_t SimulatedHttp::Core::running() const {
  const std::lock_guard lock(mutex_);
  return static_cast<size_t>(std::count_if(seen_.begin(), seen_.end(), [](const auto& request) {
    return request.state == SeenRequest::State::running;
  }));
}

namespace {

class SimulatedSession final : public HttpSession {
 public:
  SimulatedSession(std::shared_ptr<SimulatedHttp::Core> core,
                   const HttpSessionConfiguration& configuration)
      : core_(std::move(core)), state_(std::make_shared<SessionState>()) {
    state_->configuration = configuration;
    state_->queue = core_->dispatch.makeQueue("simulated.http.session");
  }
  ~SimulatedSession() override {
    *state_->closed = true;
    core_->close(state_);
  }

  QueueRef queue() const override { return state_->queue; }

  HttpTaskRef data(HttpRequest request,
                   std::function<void(Result<HttpResponse>)> completion) override {
    return core_->start(
        state_, "http.data", std::move(request),
        makeBodySink(state_->configuration.maximumBodyBytes, std::move(completion)));
  }
  HttpTaskRef stream(HttpRequest request, HttpStreamHandlers handlers) override {
    return core_->start(state_, "http.stream", std::move(request),
                        makeStreamSink(std::move(handlers)));
  }
  HttpTaskRef download(HttpRequest request, std::string path,
                       std::function<void(int64_t, int64_t)> onProgress,
                       std::function<void(Result<HttpResponse>)> completion) override {
    const auto open = [files = core_->files,
                       path = std::move(path)]() -> Result<std::unique_ptr<HttpFile>> {
      return std::make_unique<SimulatedDownload>(files, path);
    };
    return core_->start(state_, "http.download", std::move(request),
                        makeFileSink(state_->configuration.maximumBodyBytes, open,
                                     std::move(onProgress), std::move(completion)));
  }

 private:
  const std::shared_ptr<SimulatedHttp::Core> core_;
  const std::shared_ptr<SessionState> state_;
};

}  // namespace

SimulatedHttp::SimulatedHttp(Dispatch& dispatch, FaultPlan* faults, Files* files)
    : core_(std::make_shared<Core>(dispatch, faults, files)) {}

SimulatedHttp::~SimulatedHttp() { core_->clear(); }

std::shared_ptr<HttpSession> SimulatedHttp::makeSession(
    const HttpSessionConfiguration& configuration) {
  return std::make_shared<SimulatedSession>(core_, configuration);
}

void SimulatedHttp::on(const std::string& method, const std::string& where, Handler handler) {
  core_->add({method, where, std::move(handler), false});
}

void SimulatedHttp::on(const std::string& method, const std::string& where, ScriptedReply reply) {
  on(method, where, [reply = std::move(reply)](const HttpRequest&) { return reply; });
}

void SimulatedHttp::once(const std::string& method, const std::string& where, ScriptedReply reply) {
  core_->add(
      {method, where, [reply = std::move(reply)](const HttpRequest&) { return reply; }, true});
}

std::vector<SeenRequest> SimulatedHttp::requests(const std::string& where) const {
  return core_->seen(where);
}

void SimulatedHttp::forgetDone() { core_->forgetDone(); }

size_t SimulatedHttp::running() const { return core_->running(); }

}  // namespace kestrin
