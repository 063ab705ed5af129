#include "research/research_service.h"

#include <utility>

namespace kestrin {
namespace {

constexpr const char* domain = "ResearchService";
constexpr size_t largestAnswer = 64u << 20;

Result<std::vector<ResearchSession>> readSessions(const Bytes& body) {
  const auto answer = Json::parse(body);
  if (!answer) return fail(answer.error());
  const Json* list = answer->find("sessions");
  if (list == nullptr || !list->isArray()) {
    return fail(domain, ResearchService::unreadable, "The answer holds no list \"sessions\"");
  }
  std::vector<ResearchSession> sessions;
  for (const Json& each : list->items()) {
    auto session = ResearchSession::fromJson(each);
    if (!session) return fail(session.error());
    sessions.push_back(std::move(*session));
  }
  return sessions;
}

Status readSaved(const Result<HttpResponse>& response, Logger& logger) {
  if (!response) {
    logger.print("❌ Save error: " + response.error().description);
    return fail(response.error());
  }
  logger.print("📝 Save response status: " + std::to_string(response->status));
  if (response->status != 200 && response->status != 201) {
    logger.print("❌ Save failed: " + response->body);
    return fail(domain, ResearchService::refused,
                "The backend answered with status " + std::to_string(response->status));
  }
  logger.print("✅ Research saved successfully");
  return {};
}

Result<std::vector<ResearchSession>> readHistory(const Result<HttpResponse>& response,
                                                 Logger& logger) {
  if (!response) {
    logger.print("❌ History load error: " + response.error().description);
    return fail(response.error());
  }
  if (response->body.empty()) {
    logger.print("❌ No data received for history");
    return fail(domain, ResearchService::noData, "No data received for history");
  }
  auto sessions = readSessions(response->body);
  if (!sessions) {
    logger.print("❌ Failed to decode research history: " + sessions.error().description);
  } else {
    logger.print("📚 Loaded " + std::to_string(sessions->size()) + " research sessions");
  }
  return sessions;
}

ResearchJobStatus readJobStatus(const Result<HttpResponse>& response) {
  const auto answer = response ? Json::parse(response->body) : Result<Json>(Json());
  const auto status = answer ? answer->stringAt("status", "") : "";
  if (status == "complete") {
    return {ResearchJobStatus::State::complete, answer->stringAt("query", "Research")};
  }
  if (status == "error") return {ResearchJobStatus::State::failed, {}};
  return {};
}

}  // namespace

ResearchService::ResearchService(Dispatch& dispatch, Http& http, Logger& logger,
                                 DeviceIdManager& deviceId, const FirebaseAuthService& auth,
                                 const Endpoints& endpoints, std::function<void(Json&)> addServices)
    : dispatch_(dispatch),
      http_(http),
      logger_(logger),
      deviceId_(deviceId),
      auth_(auth),
      endpoints_(endpoints),
      addServices_(std::move(addServices)),
      session_(http.makeSession({.maximumBodyBytes = largestAnswer})) {}

bool ResearchService::isConfigured() const { return isHttpUrl(endpoints_.agent); }

/// The first reading of the device's id waits for the disk, so never on the main queue.
void ResearchService::withUserId(std::function<void(const std::string&)> job) {
  dispatch_.globalQueue()->post([this, job = std::move(job)] {
    const auto user = auth_.currentUser();
    job(user ? user->localId : deviceId_.deviceId());
  });
}

template <class T>
std::function<void(const T&)> ResearchService::onMain(
    std::function<void(const T&)> completion) const {
  return [main = dispatch_.mainQueue(), completion = std::move(completion)](const T& value) {
    if (completion) main->post([completion, value] { completion(value); });
  };
}

std::shared_ptr<ResearchStream> ResearchService::stream(
    const std::string& query, const std::string& context,
    std::shared_ptr<ResearchStreamDelegate> delegate) {
  const auto stream = std::make_shared<ResearchStream>(
      http_, HttpSessionConfiguration{.requestTimeout = streamRequestTimeout,
                                      .resourceTimeout = streamResourceTimeout});
  withUserId([this, query, context, delegate = std::move(delegate),
              weak = std::weak_ptr(stream)](const std::string& userId) {
    const auto wanted = weak.lock();
    if (!wanted) return;
    Json body = Json::object({{"query", query},
                              {"context", context},
                              {"user_id", userId},
                              {"max_sources", streamSources}});
    if (addServices_) addServices_(body);
    HttpRequest request = jsonPost(endpoints_.agent + "/research/stream", body.dump());
    request.setHeader("Accept", "text/event-stream");
    request.timeout = streamRequestTimeout;
    wanted->start(std::move(request), delegate, logger_);
  });
  return stream;
}

void ResearchService::saveResearchSession(ResearchSession session,
                                          std::function<void(const Status&)> completion) {
  session.createdAt = dates::iso8601(dispatch_.clock().wallNow());
  withUserId([this, session = std::move(session),
              done = onMain(std::move(completion))](const std::string& userId) mutable {
    session.userId = userId;
    logger_.print("💾 Saving research session: " + session.id);
    session_->data(
        jsonPost(endpoints_.backend + "/research/save", session.toJson().dump()),
        [this, done](const Result<HttpResponse>& response) { done(readSaved(response, logger_)); });
  });
}

void ResearchService::loadResearchHistory(
    std::function<void(const Result<std::vector<ResearchSession>>&)> completion) {
  withUserId([this, done = onMain(std::move(completion))](const std::string& userId) {
    HttpRequest request;
    request.url = endpoints_.backend + "/research/history/" + urlEncode(userId);
    logger_.print("📚 Loading research history from: " + request.url);
    session_->data(std::move(request), [this, done](const Result<HttpResponse>& response) {
      done(readHistory(response, logger_));
    });
  });
}

void ResearchService::deleteSession(const std::string& id,
                                    std::function<void(const Status&)> completion) {
  HttpRequest request;
  request.method = "DELETE";
  request.url = endpoints_.backend + "/research/" + urlEncode(id);
  session_->data(std::move(request), [this, done = onMain(std::move(completion))](
                                         const Result<HttpResponse>& response) {
    if (!response) {
      logger_.print("❌ Delete error: " + response.error().description);
      return done(fail(response.error()));
    }
    done({});
  });
}

void ResearchService::startJob(const std::string& query,
                               std::function<void(const Result<std::string>&)> completion) {
  withUserId([this, query, done = onMain(std::move(completion))](const std::string& userId) {
    Json body =
        Json::object({{"query", query}, {"user_id", userId}, {"max_sources", backgroundSources}});
    if (addServices_) addServices_(body);
    HttpRequest request = jsonPost(endpoints_.agent + "/research/start", body.dump());
    request.timeout = jobTimeout;
    session_->data(std::move(request), [done](const Result<HttpResponse>& response) {
      if (!response) return done(fail(response.error()));
      const auto answer = Json::parse(response->body);
      const auto id = answer ? answer->stringAt("research_id") : std::nullopt;
      if (!id || id->empty()) {
        return done(fail(domain, unreadable, "The agent named no research"));
      }
      done(*id);
    });
  });
}

void ResearchService::jobStatus(const std::string& id,
                                std::function<void(const ResearchJobStatus&)> completion) {
  HttpRequest request;
  request.url = endpoints_.agent + "/research/" + urlEncode(id) + "/status";
  request.timeout = jobTimeout;
  session_->data(std::move(request),
                 [done = onMain(std::move(completion))](const Result<HttpResponse>& response) {
                   done(readJobStatus(response));
                 });
}

}  // namespace kestrin
