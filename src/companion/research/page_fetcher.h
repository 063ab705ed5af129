#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/http.h"

namespace kestrin::research {

/// A page as it came.
struct FetchedPage {
  std::string contentType;
  Bytes body;  ///< at most `PageFetcher::mostBytes`; what was longer is cut
};

/// Fetches pages of the public web: http and https, GET, a few redirects, each to an address that
/// `admits` lets through when the connection is made. No cookies, no credentials, no proxy.
/// Thread-safe.
class PageFetcher {
 public:
  static constexpr size_t mostBytes = 2u << 20;
  static constexpr std::chrono::seconds patience{12};  ///< for a whole page

  /// `http` serves nothing else: other sessions' connections could lead where `admits` would not.
  PageFetcher(Http& http, std::function<bool(std::string_view)> admits);

  /// The completion runs once, on the session's queue, but not after a cancel. Errors: the
  /// transport's, or domain "PageFetcher" (1: status, 2: no text).
  HttpTaskRef fetch(const std::string& url, std::function<void(Result<FetchedPage>)> completion);

 private:
  const std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin::research
