#include "companion/http/in_process.h"

#include "companion/http/exchange.h"

namespace kestrin::server {

InProcessRequest::InProcessRequest(Server& server, Request request)
    : exchange_(std::make_shared<Exchange>(nullptr)) {
  request.headers.try_emplace("host", "127.0.0.1");
  exchange_->request = std::move(request);
  server.serve(exchange_);
}

InProcessRequest::~InProcessRequest() { exchange_->finished(ended()); }

int InProcessRequest::status() const { return exchange_->told().status; }
std::string InProcessRequest::contentType() const { return exchange_->told().contentType; }
Bytes InProcessRequest::body() const { return exchange_->told().body; }
bool InProcessRequest::ended() const { return exchange_->told().ended; }
void InProcessRequest::hangUp() { exchange_->finished(false); }

}  // namespace kestrin::server
