#include "companion/home/home_service.h"

#include "companion/backend/answers.h"
#include "companion/home/weather.h"
#include "platform/text/text.h"

namespace kestrin::home {
namespace {

using server::Request;
using server::Responder;

constexpr size_t longestSpeech = 5000;  // characters
constexpr std::chrono::seconds patience{7};
constexpr size_t largestAnswer = 4u << 20;
constexpr size_t mostNews = 6;

void refuse(const Responder& responder, int status, const std::string& why) {
  responder.json(status, Json::object({{"success", false}, {"error", why}}));
}

}  // namespace

HomeService::HomeService(Dispatch& dispatch, Http& http, SystemSpeech& speech, Options options)
    : dispatch_(dispatch),
      speech_(speech),
      options_(std::move(options)),
      session_(http.makeSession({.requestTimeout = patience,
                                 .resourceTimeout = patience,
                                 .maximumBodyBytes = largestAnswer})),
      speechQueue_(dispatch.makeQueue("companion.speech")),
      queue_(dispatch.makeQueue("companion.home")) {}

HomeService::~HomeService() {
  speechQueue_->sync([] {});
  queue_->sync([] {});
}

void HomeService::speak(const Request& request, const Responder& responder) {
  const auto body = Json::parse(request.body);
  const std::string words = body ? text::trim(body->stringAt("text", "")) : "";
  if (words.empty()) return refuse(responder, 400, "There is nothing to say");
  // The voices of hosted services have no namesake here: whoever asks for one gets the machine's
  // own.
  speechQueue_->post([this, words = text::prefix(words, longestSpeech), responder] {
    if (responder.clientGone()) return;
    const auto sound = speech_.synthesise(words, {});
    if (!sound) return refuse(responder, 503, sound.error().description);
    responder.json(200, Json::object({{"success", true}, {"audio", text::base64Encode(*sound)}}));
  });
}

void HomeService::weather(const Request& request, const Responder& responder) {
  if (options_.weatherUrl.empty()) {
    return refuse(
        responder, 501,
        "No weather service is set up (kestrin settings set pref_weatherEndpoint ADDRESS)");
  }
  const std::string location = request.queryValue("location");
  HttpRequest asked;
  asked.url = options_.weatherUrl + (options_.weatherUrl.ends_with("/") ? "" : "/") +
              urlEncode(location) + "?format=j1";
  session_->data(std::move(asked), [location, responder](const Result<HttpResponse>& response) {
    if (!response) return refuse(responder, 502, response.error().description);
    const auto report = Json::parse(response->body);
    responder.json(200, weatherAnswer(report.value_or(Json()), location));
  });
}

void HomeService::triggers(const Request& request, const Responder& responder) {
  const auto body = Json::parse(request.body);
  if (!body || !body->isObject() || body->stringAt("user_id", "").empty())
    return refuse(responder, 400, "The body must be a JSON object with a user_id");
  // Dictations are kept by device, whoever is signed in there.
  const std::string user = body->stringAt("user_id", ""),
                    device = body->stringAt("device_id", user);
  for (const std::string& id : {user, device}) {
    if (!backend::admits(id, request, responder)) return;
  }
  const auto evaluate = [queue = queue_, rules = rules_, &clock = dispatch_.clock(), responder,
                         situation = situationIn(*body)](std::optional<Date> last) {
    queue->post([=, &clock] {
      Situation known = situation;
      known.lastDictation = last;
      responder.json(200, Json::object({{"triggers", rules->evaluate(known, clock.wallNow())}}));
    });
  };
  if (!lastDictation_) return evaluate(std::nullopt);
  lastDictation_(device, evaluate);
}

void HomeService::news(std::function<void(Result<std::vector<NewsItem>>)> completion) {
  if (options_.newsUrls.empty()) return completion(fail("News", 1, "No news source is set up"));
  struct Gathering {
    std::vector<std::vector<NewsItem>> feeds;
    size_t open = 0;
    std::function<void(Result<std::vector<NewsItem>>)> completion;
  };
  // On the session's queue, one answer at a time.
  const auto gathering = std::make_shared<Gathering>();
  gathering->feeds.resize(options_.newsUrls.size());
  gathering->open = options_.newsUrls.size();
  gathering->completion = std::move(completion);
  for (size_t i = 0; i < options_.newsUrls.size(); ++i) {
    HttpRequest request;
    request.url = options_.newsUrls[i];
    session_->data(std::move(request), [gathering, i](const Result<HttpResponse>& response) {
      if (response && response->status == 200) gathering->feeds[i] = readFeed(response->body);
      if (--gathering->open > 0) return;
      auto items = mixed(gathering->feeds, mostNews);
      if (items.empty()) return gathering->completion(fail("News", 2, "No news source answers"));
      gathering->completion(std::move(items));
    });
  }
}

void HomeService::addRoutes(server::Server& server) {
  server.route("POST", "/tts",
               [this](const Request& request, const Responder& to) { speak(request, to); });
  server.route("GET", "/weather",
               [this](const Request& request, const Responder& to) { weather(request, to); });
  server.route("POST", "/triggers/evaluate",
               [this](const Request& request, const Responder& to) { triggers(request, to); });
}

}  // namespace kestrin::home
