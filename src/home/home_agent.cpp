#include "home/home_agent.h"

#include "platform/dispatch/background.h"
#include "platform/text/text.h"
#include "services/local/agent_client.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

constexpr const char* domain = "HomeAgent";
constexpr size_t mostNews = 6;

void addNews(const Json& event, std::vector<DynamicPanelItem>& news) {
  for (const Json* item : event.objectsAt("news_items")) {
    DynamicPanelItem row{item->stringAt("title", ""), item->stringAt("source", "News"),
                         item->stringAt("url", ""), item->stringAt("thumbnail_url", "")};
    if (row.title.empty() || news.size() == mostNews) continue;
    if (!isHttpUrl(row.url)) row.url.clear();
    if (!isHttpUrl(row.thumbnailUrl)) row.thumbnailUrl.clear();
    news.push_back(std::move(row));
  }
}

Result<Json> objectIn(const Result<HttpResponse>& response) {
  if (!response) return fail(response.error());
  auto answer = Json::parse(response->body);
  if (!answer || !answer->isObject()) return fail(domain, 1, "parse error");
  return std::move(*answer);
}

}  // namespace

AgentReply parseAgentReply(std::string_view body) {
  constexpr std::string_view prefix = "data: ";
  AgentReply reply;
  for (const auto& line : text::split(text::replaceInvalidUtf8(body), "\n")) {
    if (!line.starts_with(prefix)) continue;
    const auto event = Json::parse(std::string_view(line).substr(prefix.size()));
    if (!event || !event->isObject()) continue;
    reply.text += event->stringAt("chunk", "");
    std::string audio;
    if (text::base64Decode(event->stringAt("audio", ""), audio) && !audio.empty())
      reply.audio = std::move(audio);
    addNews(*event, reply.news);
    reply.error = event->stringAt("error", reply.error);
  }
  return reply;
}

HomeAgent::HomeAgent(Services services)
    : services_(std::move(services)), session_(services_.http.makeSession({})) {}

std::string HomeAgent::userId() {
  const auto user = services_.auth.currentUser();
  return user ? user->localId : services_.deviceId.deviceId();
}

void HomeAgent::ask(const std::string& transcript, const std::string& mode,
                    std::chrono::seconds timeout,
                    std::function<void(const Result<AgentReply>&)> completion) {
  const auto done =
      onMain<Result<AgentReply>>(services_.dispatch, lifetime_, std::move(completion));
  // The secret store can keep the caller waiting.
  services_.dispatch.globalQueue()->post([this, transcript, mode, timeout, done] {
    Json body =
        Json::object({{"transcript", transcript},
                      {"mode", mode},
                      {"user_id", userId()},
                      {"user_name", services_.settings.string(UserPreferences::userNameKey)}});
    setModelFields(body, services_.settings, services_.geminiKey);
    HttpRequest request = jsonPost(services_.endpoints.agent + "/process/stream", body.dump());
    request.timeout = timeout;
    session_->data(std::move(request), [done](const Result<HttpResponse>& response) {
      if (!response) return done(fail(response.error()));
      if (response->status / 100 != 2) {
        return done(
            fail(domain, 1, "The agent answered with status " + std::to_string(response->status)));
      }
      AgentReply reply = parseAgentReply(response->body);
      if (!reply.error.empty()) return done(fail(domain, 1, reply.error));
      done(std::move(reply));
    });
  });
}

void HomeAgent::post(const std::string& path, Json body, std::chrono::seconds timeout,
                     std::function<void(const Result<Json>&)> completion) {
  services_.dispatch.globalQueue()->post(
      [this, path, timeout, body = std::move(body),
       done =
           onMain<Result<Json>>(services_.dispatch, lifetime_, std::move(completion))]() mutable {
        body.set("user_id", userId()).set("device_id", services_.deviceId.deviceId());
        HttpRequest request = jsonPost(services_.endpoints.agent + path, body.dump());
        request.timeout = timeout;
        session_->data(std::move(request),
                       [done](const Result<HttpResponse>& response) { done(objectIn(response)); });
      });
}

void HomeAgent::get(const std::string& pathAndQuery, std::chrono::seconds timeout,
                    std::function<void(const Result<Json>&)> completion) {
  HttpRequest request;
  request.url = services_.endpoints.agent + pathAndQuery;
  request.timeout = timeout;
  session_->data(
      std::move(request),
      [done = onMain<Result<Json>>(services_.dispatch, lifetime_, std::move(completion))](
          const Result<HttpResponse>& response) { done(objectIn(response)); });
}

}  // namespace kestrin
