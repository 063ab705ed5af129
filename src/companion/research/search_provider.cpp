#include "companion/research/search_provider.h"

#include "platform/json/json.h"
#include "platform/text/text.h"

namespace kestrin::research {
namespace {

constexpr const char* domain = "SearchProvider";
constexpr std::chrono::seconds patience{15};
constexpr size_t largestAnswer = 4u << 20;
constexpr size_t mostHits = 50;
constexpr size_t longestTitle = 200, longestSnippet = 500;  // characters

Result<std::vector<SearchHit>> hitsIn(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  if (response->status != 200) {
    const bool refused = response->status == 403;
    return fail(domain, 2,
                "The search service answered with status " + std::to_string(response->status) +
                    (refused ? ": it may not offer the format json" : ""));
  }
  const auto answer = Json::parse(response->body);
  const auto results = answer ? answer->objectListAt("results") : std::nullopt;
  if (!results) return fail(domain, 3, "The search service gave no list of results");
  std::vector<SearchHit> hits;
  for (const Json& result : *results) {
    SearchHit hit{text::prefix(text::trim(result.stringAt("title", "")), longestTitle),
                  text::trim(result.stringAt("url", "")),
                  text::prefix(text::trim(result.stringAt("content", "")), longestSnippet)};
    if (!isHttpUrl(hit.url) || hits.size() == mostHits) continue;
    if (hit.title.empty()) hit.title = hit.url;
    hits.push_back(std::move(hit));
  }
  return hits;
}

}  // namespace

SearchProvider::SearchProvider(Http& http)
    : session_(http.makeSession({.requestTimeout = patience,
                                 .resourceTimeout = patience,
                                 .maximumBodyBytes = largestAnswer})) {}

HttpTaskRef SearchProvider::search(const std::string& base, const std::string& query,
                                   std::function<void(Result<std::vector<SearchHit>>)> completion) {
  std::string address = text::trim(base);
  while (address.ends_with("/")) address.pop_back();
  HttpRequest request;
  request.url = address + (address.ends_with("/search") ? "" : "/search") +
                "?format=json&q=" + urlEncode(query);
  request.setHeader("Accept", "application/json");
  return session_->data(std::move(request),
                        [completion = std::move(completion)](const Result<HttpResponse>& response) {
                          completion(hitsIn(response));
                        });
}

}  // namespace kestrin::research
