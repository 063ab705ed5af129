#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/http.h"

namespace kestrin::research {

struct SearchHit {
  std::string title;
  std::string url;  ///< http or https
  std::string snippet;
};

/// Asks a search service with the interface of SearXNG: `GET <base>/search?q=...&format=json`.
/// Thread-safe.
class SearchProvider {
 public:
  explicit SearchProvider(Http& http);

  /// `base`: where the user's search service answers; it may be on this machine. The completion
  /// runs once on the session's queue. Errors: the transport's, or domain "SearchProvider" (1: no
  /// address, 2: status, 3: no list of results).
  HttpTaskRef search(const std::string& base, const std::string& query,
                     std::function<void(Result<std::vector<SearchHit>>)> completion);

 private:
  const std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin::research
