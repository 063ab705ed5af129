#pragma once

#include <memory>
#include <string>

#include "companion/http/server.h"

namespace kestrin::server {

/// A request that comes over no network, with its answer: the server's routes and rules without its
/// port, which need not be open. For tests. The server must outlive it.
class InProcessRequest {
 public:
  /// Is dispatched at once. `path` stands decoded and without a query, as handlers get it; a Host
  /// header is added when there is none.
  InProcessRequest(Server& server, Request request);
  /// Hangs up.
  ~InProcessRequest();
  InProcessRequest(const InProcessRequest&) = delete;
  InProcessRequest& operator=(const InProcessRequest&) = delete;

  /// 0 as long as there is no answer.
  int status() const;
  std::string contentType() const;
  /// What has been sent so far.
  Bytes body() const;
  /// The answer is there to its end (also one that broke off).
  bool ended() const;
  void hangUp();

 private:
  std::shared_ptr<Exchange> exchange_;
};

}  // namespace kestrin::server
