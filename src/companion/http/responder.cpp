#include "companion/http/exchange.h"
#include "companion/http/server.h"

namespace kestrin::server {

namespace {

using End = Exchange::End;

/// Runs `job` when the last copy of the handle goes.
std::shared_ptr<void> atLastCopy(Job job) {
  return std::shared_ptr<void>(nullptr, [job = std::move(job)](void*) { job(); });
}

}  // namespace

std::string Request::header(std::string_view name) const {
  const auto found = headers.find(std::string(name));
  return found == headers.end() ? "" : found->second;
}

std::string Request::queryValue(std::string_view name, std::string_view fallback) const {
  const auto found = query.find(std::string(name));
  return found == query.end() ? std::string(fallback) : found->second;
}

ResponseStream::ResponseStream(std::shared_ptr<Exchange> exchange)
    : exchange_(std::move(exchange)),
      lastHandle_(atLastCopy([open = exchange_] { open->close(End::whole); })) {}

void ResponseStream::send(std::string_view bytes) { exchange_->send(bytes); }
void ResponseStream::close() { exchange_->close(End::whole); }
void ResponseStream::abort() { exchange_->close(End::broken); }
bool ResponseStream::clientGone() const { return exchange_->clientGone(); }
void ResponseStream::onClientGone(Job job) { exchange_->onClientGone(std::move(job)); }

Responder::Responder(std::shared_ptr<Exchange> exchange)
    : exchange_(std::move(exchange)), lastHandle_(atLastCopy([open = exchange_] {
        open->answerWhole(500, "application/json", R"({"error":"The request was given up"})");
      })) {}

void Responder::json(int status, const Json& body) const {
  exchange_->answerWhole(status, "application/json", body.dump());
}

void Responder::text(int status, std::string contentType, Bytes body) const {
  exchange_->answerWhole(status, std::move(contentType), std::move(body));
}

void Responder::error(int status, std::string_view message) const {
  json(status, Json::object({{"error", Json(message)}}));
}

ResponseStream Responder::stream(std::string contentType) const {
  exchange_->answerPieces(std::move(contentType));
  return ResponseStream(exchange_);
}

const Request& Responder::request() const { return exchange_->request; }
bool Responder::clientGone() const { return exchange_->clientGone(); }
void Responder::onClientGone(Job job) const { exchange_->onClientGone(std::move(job)); }

}  // namespace kestrin::server
