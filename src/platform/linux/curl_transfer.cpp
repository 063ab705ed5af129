#include "platform/linux/curl_transfer.h"

#include <algorithm>
#include <cctype>
#include <netdb.h>
#include <sys/socket.h>

namespace kestrin {
namespace {

constexpr int maximumRedirects = 5;
/// Generous for any honest server; a hostile one must not fill memory before the body's limit
/// applies.
constexpr size_t maximumHeaderBytes = 256u << 10;

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
    text.remove_prefix(1);
  }
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
    text.remove_suffix(1);
  }
  return text;
}

/// A line end inside a value would begin a header of its own.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
  return text;
}

curl_slist* headerList(const HttpRequest& request) {
  curl_slist* list = nullptr;
  const auto add = [&list](const std::string& line) {
    list = curl_slist_append(list, line.c_str());
  };
  bool hasType = false;
  for (const auto& [name, value] : request.headers) {
    const std::string cleanName = oneLine(name);
    const std::string cleanValue = oneLine(value);
    // "Name;" is how the library is told to send a header without a value.
    add(cleanValue.empty() ? cleanName + ";" : cleanName + ": " + cleanValue);
    HttpResponse probe;
    probe.headers.emplace_back(name, "x");
    hasType = hasType || !probe.header("Content-Type").empty();
  }
  add("Expect:");  // never wait for a "100 Continue"
  if (!hasType) add("Content-Type:");
  return list;
}

}  // namespace

CurlTransfer::CurlTransfer(uint64_t id, std::shared_ptr<CurlSession> session,
                           std::shared_ptr<HttpDelivery> delivery, HttpRequest request,
                           std::string peer)
    : id(id),
      session(std::move(session)),
      delivery(std::move(delivery)),
      peer(std::move(peer)),
      request_(std::move(request)) {
  if (request_.timeout.count() <= 0) request_.timeout = this->session->configuration.requestTimeout;
}

CurlTransfer::~CurlTransfer() {
  if (easy) curl_easy_cleanup(easy);
  curl_slist_free_all(headers_);
}

bool CurlTransfer::open(const std::string& noProxy, std::function<void(CurlTransfer*)> touched) {
  touched_ = std::move(touched);
  easy = curl_easy_init();
  headers_ = headerList(request_);
  if (!easy || !headers_) return false;
  const auto set = [this](CURLoption option, auto value) { curl_easy_setopt(easy, option, value); };
  set(CURLOPT_URL, request_.url.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  set(CURLOPT_NOPROXY, noProxy.c_str());
  if (session->configuration.admitsAddress) {
    set(CURLOPT_NOPROXY, "*");
    set(CURLOPT_OPENSOCKETFUNCTION, &CurlTransfer::onOpenSocket);
    set(CURLOPT_OPENSOCKETDATA, session.get());
  }
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_QUICK_EXIT, 1L);  // a cancelled look-up of a name must not hold up the thread
  set(CURLOPT_HTTPHEADER, headers_);
  set(CURLOPT_BUFFERSIZE, 128L << 10);
  set(CURLOPT_ERRORBUFFER, errorText_);
  set(CURLOPT_PRIVATE, this);
  set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_NOPROGRESS, 0L);
  set(CURLOPT_XFERINFOFUNCTION, &CurlTransfer::onProgress);
  set(CURLOPT_XFERINFODATA, this);
  set(CURLOPT_PREREQFUNCTION, &CurlTransfer::onConnected);
  set(CURLOPT_PREREQDATA, this);
  const std::string& method = request_.method;
  const bool carriesBody =
      !request_.body.empty() || method == "POST" || method == "PUT" || method == "PATCH";
  if (method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else if (carriesBody) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDS, request_.body.data());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
    if (method != "POST") set(CURLOPT_CUSTOMREQUEST, method.c_str());
  } else if (method == "GET") {
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, static_cast<long>(maximumRedirects));
  } else {
    set(CURLOPT_CUSTOMREQUEST, method.c_str());
  }
  return true;
}

CurlTransfer::Time CurlTransfer::idleDeadline() const {
  if (paused_ || request_.timeout.count() <= 0) return Time::max();
  return lastProgress_ + request_.timeout;
}

void CurlTransfer::resume(Time now) {
  paused_ = false;
  lastProgress_ = now;
  curl_easy_pause(easy, CURLPAUSE_CONT);
}

void CurlTransfer::touch() {
  lastProgress_ = std::chrono::steady_clock::now();
  if (!std::exchange(pending_, true)) touched_(this);
}

/// A name may lead to another address each time it is looked up; this is the one that is connected
/// to.
curl_socket_t CurlTransfer::onOpenSocket(void* session, curlsocktype, curl_sockaddr* address) {
  char numeric[NI_MAXHOST] = {};
  const int failed = getnameinfo(&address->addr, socklen_t(address->addrlen), numeric,
                                 sizeof numeric, nullptr, 0, NI_NUMERICHOST);
  const auto& admits = static_cast<const CurlSession*>(session)->configuration.admitsAddress;
  if (failed != 0 || !admits(numeric)) return CURL_SOCKET_BAD;
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

size_t CurlTransfer::onHeader(char* data, size_t size, size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  transfer.lastProgress_ = std::chrono::steady_clock::now();
  return transfer.headerLine({data, size * count}) ? size * count : 0;
}

bool CurlTransfer::headerLine(std::string_view line) {
  headerBytes_ += line.size();
  if (headerBytes_ > maximumHeaderBytes) return false;
  if (line.substr(0, 5) == "HTTP/") {
    // A head of its own: "100 Continue" and redirects come before the one that counts.
    if (headDone_) return true;
    const size_t blank = line.find(' ');
    status_ = blank == std::string_view::npos
                  ? 0
                  : std::atoi(std::string(line.substr(blank + 1, 3)).c_str());
    responseHeaders_.clear();
  } else if (const auto text = trimmed(line); text.empty()) {
    if (status_ >= 200 && !headDone_ && !followsRedirect()) headComplete();
  } else if (!headDone_) {  // afterwards they are trailers
    const size_t colon = text.find(':');
    if (colon != std::string_view::npos) {
      responseHeaders_.emplace_back(trimmed(text.substr(0, colon)),
                                    trimmed(text.substr(colon + 1)));
    }
  }
  return true;
}

bool CurlTransfer::followsRedirect() const {
  if (request_.method != "GET" || !request_.body.empty()) return false;
  HttpResponse probe;
  probe.headers = responseHeaders_;
  return status_ >= 300 && status_ < 400 && !probe.header("Location").empty();
}

void CurlTransfer::headComplete() {
  headDone_ = true;
  arrival_.status = status_;
  arrival_.headers = std::move(responseHeaders_);
  touch();
}

size_t CurlTransfer::onBody(char* data, size_t size, size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  if (*transfer.unread_ + transfer.arrival_.data.size() > pauseAbove) {
    transfer.paused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  transfer.arrival_.data.append(data, size * count);
  transfer.touch();
  return size * count;
}

int CurlTransfer::onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  if (std::exchange(transfer.sent_, sent) != sent) {
    transfer.lastProgress_ = std::chrono::steady_clock::now();
  }
  return 0;
}

int CurlTransfer::onConnected(void* self, char*, char*, int, int) {
  static_cast<CurlTransfer*>(self)->lastProgress_ = std::chrono::steady_clock::now();
  return CURL_PREREQFUNC_OK;
}

void CurlTransfer::flush() {
  if (!std::exchange(pending_, false)) return;
  *unread_ += arrival_.data.size();
  delivery->arrive(std::exchange(arrival_, {}));
}

void CurlTransfer::finish(std::optional<Error> error) {
  arrival_.ended = true;
  arrival_.error = std::move(error);
  pending_ = true;
  flush();
}

std::optional<Error> CurlTransfer::outcome(CURLcode code) const {
  const auto because = [this, code](HttpErrorCode kind) {
    Error error = httpError(kind, peer);
    error.description += ": ";
    error.description += errorText_[0] ? errorText_ : curl_easy_strerror(code);
    return error;
  };
  switch (code) {
    case CURLE_OK:
      return {};
    case CURLE_URL_MALFORMAT:
      return httpError(httpBadUrl);
    case CURLE_COULDNT_CONNECT:
      return httpError(httpCannotConnect, peer);
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_PROXY:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CERTPROBLEM:
      return because(httpCannotConnect);
    case CURLE_OPERATION_TIMEDOUT:
      return httpError(httpTimedOut);
    case CURLE_RECV_ERROR:
      // The library reports a malformed chunk under the same code as a reset.
      if (std::string_view(errorText_).find("chunk") != std::string_view::npos) {
        return because(httpBadResponse);
      }
      return httpError(httpConnectionLost, peer);
    case CURLE_SEND_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
      return httpError(httpConnectionLost, peer);
    default:
      return because(httpBadResponse);
  }
}

}  // namespace kestrin
