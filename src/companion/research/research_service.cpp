#include "companion/research/research_service.h"

#include <algorithm>
#include <set>

#include "companion/backend/answers.h"
#include "platform/text/text.h"

namespace kestrin::research {
namespace {

using server::Request;
using server::Responder;

constexpr size_t longestQuery = 2000, longestContext = 64u << 10;
constexpr int64_t mostSources = 12;
/// More at once would only slow each other down.
constexpr size_t mostRunning = 4;
constexpr size_t mostRemembered = 200;

}  // namespace

/// Jobs that go on by themselves, and streams that must end with the service. Thread-safe.
struct ResearchService::Jobs {
  struct Entry {
    std::string query;
    std::string state = "running";
  };
  std::mutex mutex;
  std::map<std::string, Entry> entries;
  std::deque<std::string> order;
  std::set<std::shared_ptr<ResearchJob>> running;

  size_t runningCount() {
    const std::lock_guard lock(mutex);
    return size_t(std::count_if(entries.begin(), entries.end(),
                                [](const auto& entry) { return entry.second.state == "running"; }));
  }
  void add(const std::string& id, const std::string& query) {
    const std::lock_guard lock(mutex);
    entries[id] = {query};
    order.push_back(id);
    if (order.size() <= mostRemembered) return;
    entries.erase(order.front());
    order.pop_front();
  }
  void setState(const std::string& id, const char* state) {
    const std::lock_guard lock(mutex);
    if (const auto found = entries.find(id); found != entries.end()) found->second.state = state;
  }
  std::optional<Entry> find(const std::string& id) {
    const std::lock_guard lock(mutex);
    const auto found = entries.find(id);
    return found == entries.end() ? std::nullopt : std::optional(found->second);
  }
  void hold(const std::shared_ptr<ResearchJob>& job) {
    const std::lock_guard lock(mutex);
    running.insert(job);
  }
  void release(const std::weak_ptr<ResearchJob>& job) {
    const std::lock_guard lock(mutex);
    if (const auto ended = job.lock()) running.erase(ended);
  }
};

ResearchService::ResearchService(Dispatch& dispatch, Http& http, Http& webHttp,
                                 agent::LanguageModel& model, Random& random, Options options,
                                 std::function<void(std::string)> log)
    : dispatch_(dispatch),
      model_(model),
      random_(random),
      options_(std::move(options)),
      log_(std::move(log)),
      queue_(dispatch.makeQueue("companion.research")),
      search_(std::make_unique<SearchProvider>(http)),
      pages_(std::make_unique<PageFetcher>(webHttp, options_.admits)),
      jobs_(std::make_shared<Jobs>()) {}

ResearchService::~ResearchService() {
  std::set<std::shared_ptr<ResearchJob>> running;
  {
    const std::lock_guard lock(jobs_->mutex);
    running.swap(jobs_->running);
  }
  for (const auto& job : running) job->cancel();
  queue_->sync([] {});
}

void ResearchService::useRecords(RecordSearch records, Keep keep) {
  records_ = std::move(records);
  keep_ = std::move(keep);
}

ResearchJob::Tools ResearchService::tools() const {
  return {dispatch_, queue_, *search_, *pages_, model_, records_, log_};
}

std::optional<ResearchQuestion> ResearchService::questionIn(const Request& request,
                                                            const Responder& responder) const {
  const auto body = Json::parse(request.body);
  ResearchQuestion question;
  question.query = body ? text::trim(body->stringAt("query", "")) : "";
  if (question.query.empty()) {
    responder.error(400, "The body must be a JSON object with a query");
    return std::nullopt;
  }
  if (question.query.size() > longestQuery) {
    responder.error(413, "A query may have " + std::to_string(longestQuery) + " bytes");
    return std::nullopt;
  }
  question.context = text::suffix(body->stringAt("context", ""), longestContext);
  question.userId = body->stringAt("user_id", "");
  // It names whose records are searched, and among whose the answer is kept.
  if (!question.userId.empty() && !backend::admits(question.userId, request, responder))
    return std::nullopt;
  question.maxSources =
      size_t(std::clamp(body->intAt("max_sources").value_or(5), int64_t(1), mostSources));
  question.searchUrl = text::trim(body->stringAt("search_url", options_.searchUrl));
  if (!question.searchUrl.empty() && !isHttpUrl(question.searchUrl)) {
    responder.error(400, "search_url is no http or https address");
    return std::nullopt;
  }
  question.model = agent::endpointFor(*body, options_.hostedModelUrl);
  return question;
}

void ResearchService::stream(const Request& request, const Responder& responder) {
  auto question = questionIn(request, responder);
  if (!question) return;
  auto events = responder.stream("text/event-stream; charset=utf-8");
  const auto held = std::make_shared<std::weak_ptr<ResearchJob>>();
  const auto job = std::make_shared<ResearchJob>(
      tools(), std::move(*question),
      [events](const Json& event) mutable { events.send("data: " + event.dump() + "\n\n"); },
      [events, jobs = jobs_, held]() mutable {
        events.send("data: [DONE]\n\n");
        events.close();
        jobs->release(*held);
      });
  *held = job;
  jobs_->hold(job);
  events.onClientGone([jobs = jobs_, weak = std::weak_ptr(job)] {
    if (const auto left = weak.lock()) left->cancel();
    jobs->release(weak);
  });
  job->start();
}

void ResearchService::startJob(const Request& request, const Responder& responder) {
  auto question = questionIn(request, responder);
  if (!question) return;
  if (jobs_->runningCount() >= mostRunning)
    return responder.error(429, "Too much research is running already");
  const std::string id = text::lower(random_.uuid());
  jobs_->add(id, question->query);
  const auto held = std::make_shared<std::weak_ptr<ResearchJob>>();
  const auto job = std::make_shared<ResearchJob>(
      tools(), *question,
      [id, asked = *question, keep = keep_](const Json& event) {
        if (!event.has("summary") || !keep) return;
        keep(id, asked, event.stringAt("summary", ""),
             Json(event.objectListAt("sources").value_or(Json::Array{})));
      },
      [id, jobs = jobs_, held] {
        jobs->setState(id, "complete");
        jobs->release(*held);
      });
  *held = job;
  jobs_->hold(job);
  job->start();
  responder.json(200,
                 Json::object({{"success", true}, {"research_id", id}, {"status", "running"}}));
}

void ResearchService::answerStatus(const Request& request, const Responder& responder) const {
  constexpr std::string_view ending = "/status";
  const std::string& rest = request.rest;
  if (!rest.ends_with(ending)) return responder.error(404, "There is nothing at " + request.path);
  const auto entry = jobs_->find(rest.substr(0, rest.size() - ending.size()));
  // Of the time before a restart, or made up: it will not come any more.
  if (!entry) return responder.json(200, Json::object({{"status", "error"}}));
  responder.json(200, Json::object({{"status", entry->state}, {"query", entry->query}}));
}

void ResearchService::addRoutes(server::Server& server) {
  server.route("POST", "/research/stream",
               [this](const Request& request, const Responder& to) { stream(request, to); });
  server.route("POST", "/research/start",
               [this](const Request& request, const Responder& to) { startJob(request, to); });
  server.route("GET", "/research/*",
               [this](const Request& request, const Responder& to) { answerStatus(request, to); });
}

}  // namespace kestrin::research
