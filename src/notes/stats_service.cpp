#include "notes/stats_service.h"

namespace kestrin {
namespace {

constexpr const char* domain = "StatsService";
constexpr std::chrono::seconds requestTimeout{15};
constexpr size_t largestAnswer = 64u << 20;

enum ErrorCode { invalidUrl = 1, noData = 2, unreadable = 3, deletedMeanwhile = 4, refused = 5 };

std::string loadedLine(const UserStats& stats) {
  return "✅ Stats loaded: " + std::to_string(stats.totalWords) + " words, " +
         std::to_string(stats.averageWPM) + " WPM, " + std::to_string(stats.streak) + " day streak";
}

std::string refusal(const HttpResponse& response) {
  const auto body = Json::parse(response.body);
  const std::string why = body ? body->stringAt("error", "") : "";
  return why.empty() ? "The backend answered with status " + std::to_string(response.status) : why;
}

}  // namespace

StatsService::StatsService(Http& http, Logger& logger, LocalCache& cache,
                           const Endpoints& endpoints)
    : logger_(logger),
      cache_(cache),
      baseUrl_(endpoints.backend),
      session_(
          http.makeSession({.requestTimeout = requestTimeout, .maximumBodyBytes = largestAnswer})) {
}

HttpRequest StatsService::request(const char* method, const std::string& path,
                                  const std::string& userId, const std::string& query) const {
  HttpRequest request;
  request.method = method;
  request.url = baseUrl_ + path + urlEncode(userId) + query;
  request.setHeader("X-Device-Id", userId);
  return request;
}

void StatsService::fetchStats(const std::string& userId,
                              std::function<void(Result<UserStats>)> completion) {
  HttpRequest asked = request("GET", "/user-stats/", userId);
  if (!isHttpUrl(asked.url)) {
    logger_.print("❌ Invalid stats URL");
    return completion(fail(domain, invalidUrl, "Invalid stats URL"));
  }
  logger_.print("📊 Fetching stats from: " + asked.url);
  session_->data(std::move(asked),
                 [this, completion = std::move(completion)](const Result<HttpResponse>& response) {
                   if (!response) {
                     logger_.print("❌ Stats fetch error: " + response.error().description);
                     return completion(fail(response.error()));
                   }
                   logger_.print("📊 Stats response status: " + std::to_string(response->status));
                   if (response->body.empty()) {
                     logger_.print("❌ No data received");
                     return completion(fail(domain, noData, "No data received"));
                   }
                   logger_.print("📊 Stats response: " + response->body);
                   const auto answer = Json::parse(response->body);
                   const Json* stats = answer ? answer->objectAt("stats") : nullptr;
                   const auto read = stats != nullptr ? UserStats::fromJson(*stats) : std::nullopt;
                   if (!read) {
                     logger_.print("❌ Failed to parse stats JSON");
                     return completion(fail(domain, unreadable, "Failed to parse stats JSON"));
                   }
                   logger_.print(loadedLine(*read));
                   completion(*read);
                 });
}

Result<Json::Array> StatsService::readHistory(const Result<HttpResponse>& response) {
  if (!response) {
    logger_.print("❌ History fetch error: " + response.error().description);
    return fail(response.error());
  }
  if (response->body.empty()) {
    logger_.print("❌ No history data received");
    return fail(domain, noData, "No history data received");
  }
  auto list = LocalCache::historyIn(response->body);
  if (!list) {
    logger_.print("❌ Failed to parse history JSON");
    return fail(domain, unreadable, "Failed to parse history JSON");
  }
  return std::move(*list);
}

void StatsService::fetchHistory(const std::string& userId, int limit,
                                std::function<void(Result<HistoryAnswer>)> completion) {
  const int deletions = deletions_;
  session_->data(
      request("GET", "/history/", userId, "?limit=" + std::to_string(limit)),
      [this, deletions, completion = std::move(completion)](const Result<HttpResponse>& response) {
        auto list = readHistory(response);
        if (deletions != deletions_) {
          return completion(fail(domain, deletedMeanwhile, "The history was deleted meanwhile"));
        }
        if (list) {
          cache_.saveHistoryResponseData(response->body);
          return completion(HistoryAnswer{std::move(*list), std::nullopt});
        }
        auto cached = cache_.history();
        if (!cached) return completion(fail(list.error()));
        logger_.print("🗂️ Using cached history (" + std::to_string(cached->size()) +
                      " items)");
        completion(HistoryAnswer{std::move(*cached), list.error()});
      });
}

void StatsService::deleteHistory(const std::string& userId,
                                 std::function<void(Status)> completion) {
  // An answer that is on its way must not bring back what is deleted now.
  ++deletions_;
  session_->data(request("DELETE", "/history/", userId), [this, completion = std::move(completion)](
                                                             const Result<HttpResponse>& response) {
    const bool cacheGone = cache_.removeHistory();
    if (!response) return completion(fail(response.error()));
    if (response->status / 100 != 2) {
      return completion(fail(domain, refused, refusal(*response)));
    }
    if (!cacheGone) {
      return completion(fail(domain, refused, "The cached history cannot be deleted"));
    }
    completion({});
  });
}

}  // namespace kestrin
