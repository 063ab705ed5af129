#include "platform/linux/curl_network.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <signal.h>
#include <sys/epoll.h>

namespace kestrin {
namespace {

/// The user's own exceptions, and loopback in any case: the local services are never behind a
/// proxy.
std::string noProxyList() {
  std::string list = "localhost,127.0.0.0/8,::1";
  for (const char* name : {"no_proxy", "NO_PROXY"}) {
    if (const char* value = std::getenv(name); value && *value) {
      if (std::string_view(value) == "*") return "*";
      return list + "," + value;
    }
  }
  return list;
}

}  // namespace

CurlNetwork::CurlNetwork() : noProxy_(noProxyList()), poll_(epoll_create1(EPOLL_CLOEXEC)) {
  // Thread-safe only once, before any other use; a magic static is both.
  static const CURLcode global = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (global == CURLE_OK) multi_ = curl_multi_init();
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = wake_.get();
  if (!multi_ || epoll_ctl(poll_.get(), EPOLL_CTL_ADD, wake_.get(), &event) != 0) {
    stopped_ = true;
    return;
  }
  curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlNetwork::onSocket);
  curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlNetwork::onTimer);
  curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
  curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, 64L);
  thread_ = std::thread([this] { run(); });
}

CurlNetwork::~CurlNetwork() {
  stop();
  if (multi_) curl_multi_cleanup(multi_);
}

void CurlNetwork::stop() {
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) return;
    stopped_ = true;
  }
  wake_.signal();
  thread_.join();
}

bool CurlNetwork::order(std::function<void()> job) {
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) return false;
    orders_.push_back(std::move(job));
    if (orders_.size() > 1) return true;  // already awake
  }
  wake_.signal();
  return true;
}

void CurlNetwork::start(std::unique_ptr<CurlTransfer> transfer) {
  // A job must be copyable, a transfer is not.
  auto holder = std::make_shared<std::unique_ptr<CurlTransfer>>(std::move(transfer));
  if (!order([this, holder] { admit(std::move(*holder)); })) {
    (*holder)->finish(httpError(httpCancelled));
  }
}

void CurlNetwork::abandon(uint64_t id) {
  order([this, id] { end(id, {}, false); });
}

void CurlNetwork::resume(uint64_t id) {
  order([this, id] {
    const auto found = transfers_.find(id);
    if (found != transfers_.end() && found->second->needsResume()) {
      found->second->resume(std::chrono::steady_clock::now());
      watch(found->second->idleDeadline());
    }
  });
}

void CurlNetwork::close(const std::shared_ptr<CurlSession>& session) {
  order([this, session] {
    session->waiting.clear();
    std::vector<uint64_t> ids;
    for (const auto& [id, transfer] : transfers_) {
      if (transfer->session == session) ids.push_back(id);
    }
    for (const uint64_t id : ids) end(id, {}, false);
  });
}

void CurlNetwork::run() {
  // Signals belong to the program's own threads; a broken pipe inside the TLS library must not end
  // it.
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
  while (runOrders()) {
    // Twice: what an order touched must not wait for the next event.
    reapFinished();
    flushTouched();
    waitAndServe();
    reapFinished();
    flushTouched();
    expire();
  }
  while (!transfers_.empty()) end(transfers_.begin()->first, httpError(httpCancelled), true);
}

bool CurlNetwork::runOrders() {
  std::vector<std::function<void()>> orders;
  bool more = true;
  {
    const std::lock_guard lock(mutex_);
    orders.swap(orders_);
    more = !stopped_;
  }
  for (const auto& job : orders) job();
  return more;
}

void CurlNetwork::waitAndServe() {
  int timeout = -1;
  const Time wakeAt = std::min(curlTimer_, nextDeadline_);
  if (wakeAt != Time::max()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(wakeAt - std::chrono::steady_clock::now());
    timeout = static_cast<int>(std::clamp<int64_t>(left.count(), 0, 60'000));
  }
  std::array<epoll_event, 64> events{};
  const int count =
      epoll_wait(poll_.get(), events.data(), static_cast<int>(events.size()), timeout);
  int running = 0;
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = events[static_cast<size_t>(i)];
    if (event.data.fd == wake_.get()) {
      wake_.reset();
      continue;
    }
    int what = 0;
    if (event.events & (EPOLLIN | EPOLLHUP)) what |= CURL_CSELECT_IN;
    if (event.events & EPOLLOUT) what |= CURL_CSELECT_OUT;
    if (event.events & EPOLLERR) what |= CURL_CSELECT_ERR;
    curl_multi_socket_action(multi_, event.data.fd, what, &running);
  }
  if (curlTimer_ <= std::chrono::steady_clock::now()) {
    curlTimer_ = Time::max();
    curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
  }
}

void CurlNetwork::reapFinished() {
  int left = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    CurlTransfer* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    const CURLcode code = message->data.result;
    end(transfer->id, transfer->outcome(code), true);
  }
}

void CurlNetwork::flushTouched() {
  while (!touched_.empty()) {
    const auto touched = std::exchange(touched_, {});
    for (CurlTransfer* transfer : touched) {
      transfer->flush();
      // The consumer may have caught up between the pause and this post: then nobody else resumes.
      if (transfer->needsResume()) transfer->resume(std::chrono::steady_clock::now());
    }
  }
}

void CurlNetwork::expire() {
  const Time now = std::chrono::steady_clock::now();
  if (now < nextDeadline_) return;
  nextDeadline_ = Time::max();
  std::vector<uint64_t> late;
  for (const auto& [id, transfer] : transfers_) {
    const Time idle = transfer->begun ? transfer->idleDeadline() : Time::max();
    const Time deadline = std::min(transfer->wholeDeadline, idle);
    if (deadline <= now) {
      late.push_back(id);
    } else {
      watch(deadline);
    }
  }
  for (const uint64_t id : late) end(id, httpError(httpTimedOut), true);
}

void CurlNetwork::watch(Time deadline) { nextDeadline_ = std::min(nextDeadline_, deadline); }

void CurlNetwork::admit(std::unique_ptr<CurlTransfer> transfer) {
  const uint64_t id = transfer->id;
  CurlTransfer& added = *(transfers_[id] = std::move(transfer));
  CurlSession& session = *added.session;
  if (*session.closed) return end(id, {}, false);
  if (session.configuration.resourceTimeout.count() > 0) {
    added.wholeDeadline = std::chrono::steady_clock::now() + session.configuration.resourceTimeout;
    watch(added.wholeDeadline);
  }
  if (session.active[added.peer] < session.configuration.maximumConnectionsPerHost) {
    begin(added);
  } else {
    session.waiting[added.peer].push_back(id);
  }
}

void CurlNetwork::begin(CurlTransfer& transfer) {
  transfer.begun = true;
  ++transfer.session->active[transfer.peer];
  transfer.started(std::chrono::steady_clock::now());
  watch(transfer.idleDeadline());
  const bool opened =
      transfer.open(noProxy_, [this](CurlTransfer* touched) { touched_.push_back(touched); });
  if (!opened || curl_multi_add_handle(multi_, transfer.easy) != CURLM_OK) {
    end(transfer.id, httpError(httpCannotConnect, transfer.peer), true);
  }
}

void CurlNetwork::end(uint64_t id, std::optional<Error> error, bool tell) {
  const auto found = transfers_.find(id);
  if (found == transfers_.end()) return;
  const auto transfer = std::move(found->second);
  transfers_.erase(found);
  touched_.erase(std::remove(touched_.begin(), touched_.end(), transfer.get()), touched_.end());
  // The caller first, the clean-up after.
  if (tell) {
    transfer->finish(std::move(error));
  } else {
    transfer->delivery->drop();
  }
  if (transfer->easy) curl_multi_remove_handle(multi_, transfer->easy);
  if (!transfer->begun) return;
  --transfer->session->active[transfer->peer];
  auto& waiting = transfer->session->waiting[transfer->peer];
  while (!waiting.empty()) {
    const auto next = transfers_.find(waiting.front());
    waiting.pop_front();
    if (next == transfers_.end()) continue;
    begin(*next->second);
    break;
  }
}

int CurlNetwork::onSocket(CURL*, curl_socket_t socket, int what, void* self, void* known) {
  auto& network = *static_cast<CurlNetwork*>(self);
  if (what == CURL_POLL_REMOVE) {
    // Fails when the socket is closed already: then it has left the set by itself.
    epoll_ctl(network.poll_.get(), EPOLL_CTL_DEL, socket, nullptr);
    return 0;
  }
  epoll_event event{};
  event.data.fd = socket;
  if (what & CURL_POLL_IN) event.events |= EPOLLIN;
  if (what & CURL_POLL_OUT) event.events |= EPOLLOUT;
  epoll_ctl(network.poll_.get(), known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, socket, &event);
  if (!known) curl_multi_assign(network.multi_, socket, self);
  return 0;
}

int CurlNetwork::onTimer(CURLM*, long milliseconds, void* self) {
  auto& network = *static_cast<CurlNetwork*>(self);
  network.curlTimer_ =
      milliseconds < 0 ? Time::max()
                       : std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  return 0;
}

}  // namespace kestrin
