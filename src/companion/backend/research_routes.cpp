#include "companion/backend/research_routes.h"

#include "companion/backend/answers.h"
#include "companion/backend/record_search.h"
#include "companion/backend/research_store.h"
#include "platform/text/text.h"

namespace kestrin::backend {
namespace {

using server::Request;
using server::Responder;

constexpr size_t longestId = 128, longestText = 1u << 20;
constexpr size_t mostSources = 50;

/// The sources as they are kept: texts alone, and no more than fit on a page.
Json sourcesIn(const Json& body) {
  Json out = Json::array();
  for (const Json* source : body.objectsAt("sources")) {
    if (out.items().size() == mostSources) break;
    Json kept = Json::object();
    for (const char* key : {"title", "url", "snippet"}) kept.set(key, source->stringAt(key, ""));
    out.push(std::move(kept));
  }
  return out;
}

void save(Store& store, const Request& request, Date now, const Responder& responder) {
  const auto body = objectIn(request, responder);
  if (!body) return;
  ResearchRecord record{body->stringAt("id", ""),
                        body->stringAt("userId", ""),
                        dates::parseIso8601(body->stringAt("createdAt", "")).value_or(now),
                        body->stringAt("query", ""),
                        body->stringAt("summary", ""),
                        sourcesIn(*body)};
  if (!admits(record.userId, request, responder)) return;
  if (record.id.empty() || record.id.size() > longestId || text::contains(record.id, "/"))
    return answerFailed(responder, 400, "That is no research id");
  if (record.query.size() + record.summary.size() > longestText)
    return answerFailed(responder, 413, "The research is too long");
  const auto saved = ResearchStore(store).save(record);
  if (!saved) return answerDone(responder, fail(saved.error()));
  if (!*saved) return answerFailed(responder, 403, "These records belong to another user");
  answerDone(responder, {});
}

void answerHistory(Store& store, const Request& request, const Responder& responder) {
  if (!admits(request.rest, request, responder)) return;
  const auto found = ResearchStore(store).ofUser(request.rest);
  if (!found) return answerDone(responder, fail(found.error()));
  Json list = Json::array();
  for (const ResearchRecord& record : *found) {
    list.push(Json::object({{"id", record.id},
                            {"query", record.query},
                            {"summary", record.summary},
                            {"sources", record.sources},
                            {"createdAt", dates::iso8601(record.created)},
                            {"userId", record.userId}}));
  }
  responder.json(200, Json::object({{"sessions", std::move(list)}}));
}

}  // namespace

void addResearchRoutes(server::Server& server, BackendService& backend, Clock& clock) {
  backend.addStoreRoute(server, "POST", "/research/save",
                        [&clock](Store& store, const Request& request, const Responder& responder) {
                          save(store, request, clock.wallNow(), responder);
                        });
  backend.addStoreRoute(server, "GET", "/research/history/*", answerHistory);
  backend.addStoreRoute(server, "DELETE", "/research/*",
                        [](Store& store, const Request& request, const Responder& responder) {
                          const auto removed = ResearchStore(store).remove(
                              request.rest, request.header("x-device-id"));
                          if (!removed) return answerDone(responder, fail(removed.error()));
                          if (!*removed)
                            return answerFailed(responder, 404, "There is no such research");
                          answerDone(responder, {});
                        });
}

research::RecordSearch recordSearch(BackendService& backend) {
  return [&backend](const std::string& userId, const std::string& query,
                    std::function<void(std::vector<research::Document>)> completion) {
    backend.withStore([userId, query, completion = std::move(completion)](Store& store) {
      completion(searchRecords(store, userId, query));
    });
  };
}

research::ResearchService::Keep keepResearch(BackendService& backend, Clock& clock,
                                             std::function<void(std::string)> log) {
  return [&backend, &clock, log = std::move(log)](const std::string& id,
                                                  const research::ResearchQuestion& question,
                                                  const std::string& summary, const Json& sources) {
    if (question.userId.empty()) return;
    backend.withStore([record = ResearchRecord{id, question.userId, clock.wallNow(), question.query,
                                               summary, sources},
                       log](Store& store) {
      const auto saved = ResearchStore(store).save(record);
      if (!saved) log("research: it could not be kept: " + saved.error().description);
    });
  };
}

}  // namespace kestrin::backend
