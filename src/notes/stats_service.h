#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "diagnostics/logger.h"
#include "notes/local_cache.h"
#include "notes/user_stats.h"
#include "platform/http.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// The backend's records of dictations, or those of the last good answer.
struct HistoryAnswer {
  Json::Array history;                 ///< newest first
  std::optional<Error> cachedBecause;  ///< why they come from the cache
};

/// The client of the backend's history and statistics. Completions run once, on the network's
/// queue (or at once where nothing can be asked). The user's id is the device's. Thread-safe.
///
/// Errors: domain "HTTP" when the backend cannot be reached, else "StatsService".
class StatsService {
 public:
  StatsService(Http& http, Logger& logger, LocalCache& cache, const Endpoints& endpoints);

  void fetchStats(const std::string& userId, std::function<void(Result<UserStats>)> completion);

  /// A good answer is kept in the cache; without one the cache answers, and the error comes only
  /// when it holds nothing either.
  void fetchHistory(const std::string& userId, int limit,
                    std::function<void(Result<HistoryAnswer>)> completion);

  /// Deletes the history at the backend and in the cache; the cache also when the backend fails.
  void deleteHistory(const std::string& userId, std::function<void(Status)> completion);

 private:
  HttpRequest request(const char* method, const std::string& path, const std::string& userId,
                      const std::string& query = {}) const;
  Result<Json::Array> readHistory(const Result<HttpResponse>& response);

  Logger& logger_;
  LocalCache& cache_;
  const std::string baseUrl_;
  std::atomic<int> deletions_ = 0;
  std::shared_ptr<HttpSession> session_;
};

}  // namespace kestrin
