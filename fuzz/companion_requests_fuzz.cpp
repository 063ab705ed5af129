#include <SQLiteCpp/SQLiteCpp.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

#include "companion/companion.h"
#include "companion/http/in_process.h"
#include "platform/dispatch/simulation.h"
#include "platform/simulated/simulated_files.h"
#include "platform/simulated/simulated_http.h"
#include "platform/simulated/simulated_speech.h"
#include "platform/text/text.h"

namespace {

using namespace kestrin;
using namespace std::chrono_literals;
using server::InProcessRequest;
using server::Request;

class TalkingEngine final : public recogniser::Engine {
 public:
  Result<recogniser::Decoded> decode(std::span<const float>) override {
    return recogniser::Decoded{"We met Ann in Lyon on Monday.", 9, -1.0};
  }
};

/// All services over a store in memory, alone in a simulated world.
class World {
 public:
  World() {
    http_.forgetDone();
    const char* chunk =
        R"({"choices":[{"delta":{"content":"A {\"feedbackSummary\":\"b\"} [1]"}}]})";
    http_.on("GET", "model.test/*", ScriptedReply::body(R"({"data":[{"id":"m"}]})"));
    http_.on("POST", "model.test/*",
             ScriptedReply::events({{1s, std::string("data: ") + chunk + "\n\n"}}));
    http_.on(
        "POST", "model.test/v1beta/*",
        ScriptedReply::events(
            {{1s, "data: {\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"H\"}]}}]}\n\n"}}));
    http_.on("GET", "search.test/*",
             ScriptedReply::body(
                 R"({"results":[{"url":"http://page.test/","title":"T","content":"C"}]})"));
    http_.on("GET", "weather.test/*", ScriptedReply::body(R"({"current_condition":[{}]})"));
    http_.on("GET", "news.test/*",
             ScriptedReply::body("<rss><channel><item><title>N</title></item></channel></rss>"));
    web_.forgetDone();
    web_.on("GET", "page.test/*", ScriptedReply::body("<p>A page about the pilot in Lyon.</p>"));

    options_.hostedModelUrl = "http://model.test";
    options_.searchUrl = "http://search.test";
    options_.home.weatherUrl = "http://weather.test";
    options_.home.newsUrls = {"http://news.test/feed"};
    options_.version = "1";
    std::filesystem::remove_all(folder());
    options_.storePath = folder() + "/store.sqlite";
    options_.ports = {
        &web_, &speech_, &random_, [] {
          return Result<std::unique_ptr<recogniser::Engine>>(std::make_unique<TalkingEngine>());
        }};
    companion_ = std::make_unique<Companion>(*engine_, http_, [](const std::string&) {});
    companion_->addServices(options_);
    companion_->loadRecogniser(options_, [](const Status&) {});
    engine_->runReady();
    for (const auto& service : companion_->services()) {
      for (const auto& name : service.server->routes())
        routes_.push_back({service.server.get(), name.method, name.path});
    }
  }
  ~World() {
    companion_.reset();
    std::filesystem::remove_all(folder());
  }

  /// One request as text: "METHOD path?query", then headers, an empty line and the body. "*" for
  /// the first line sends it to every route; a path that is none takes one by chance. "~" before
  /// the method hangs up at once. "$ID" in it is the id that an answer told last.
  void ask(std::string text) {
    if (!lastId_.empty()) text = text::replaceAll(text, "$ID", lastId_);
    const std::string line = text.substr(0, text.find('\n'));
    Request request;
    readRest(text, line.size() + 1, request);
    if (line == "*") {
      for (const Route& route : routes_) send(route, route.path, request, false);
      return;
    }
    const bool leaves = line.starts_with('~');
    const size_t blank = line.find(' ');
    const std::string target = blank == std::string::npos ? line : line.substr(blank + 1);
    readQuery(target, request);
    const std::string path = target.substr(0, target.find('?'));
    const std::string method =
        line.substr(leaves ? 1 : 0, blank == std::string::npos ? 0 : blank - (leaves ? 1 : 0));
    // Two services share some beginnings: the longest path is meant.
    const Route* meant = nullptr;
    for (const Route& route : routes_) {
      const bool prefix = route.path.ends_with('*');
      const bool fits = prefix ? path.starts_with(route.path.substr(0, route.path.size() - 1))
                               : path == route.path;
      const bool better = meant == nullptr || !prefix || route.path.size() > meant->path.size();
      if (fits && route.method == method && better) meant = &route;
    }
    if (meant != nullptr) return send(*meant, path, request, leaves);
    send(routes_[std::hash<std::string>()(line) % routes_.size()], "", request, leaves);
  }

 private:
  struct Route {
    server::Server* server;
    std::string method, path;
  };

  static std::string folder() { return "/dev/shm/kestrin-fuzz-" + std::to_string(getpid()); }

  static void readRest(const std::string& text, size_t begin, Request& request) {
    while (begin < text.size()) {
      const size_t end = std::min(text.find('\n', begin), text.size());
      const std::string line = text.substr(begin, end - begin);
      begin = end + 1;
      if (line.empty()) break;
      const size_t colon = line.find(':');
      if (colon != std::string::npos)
        request.headers[text::lower(line.substr(0, colon))] = text::trim(line.substr(colon + 1));
    }
    if (begin < text.size()) request.body = text.substr(begin);
  }
  static void readQuery(const std::string& target, Request& request) {
    const size_t mark = target.find('?');
    if (mark == std::string::npos) return;
    for (const std::string& pair : text::split(target.substr(mark + 1), "&")) {
      const size_t equals = pair.find('=');
      request.query[pair.substr(0, equals)] =
          equals == std::string::npos ? "" : pair.substr(equals + 1);
    }
  }

  void send(const Route& route, std::string path, Request request, bool leaves) {
    request.method = route.method;
    if (path.empty()) path = route.path;
    if (path.ends_with('*')) path.replace(path.size() - 1, 1, lastId_.empty() ? "u" : lastId_);
    request.path = path;
    InProcessRequest asked(*route.server, std::move(request));
    if (leaves) asked.hangUp();
    const bool came = engine_->runUntil([&] { return leaves || asked.ended(); }, 600s);
    engine_->runReady();
    if (leaves) return;
    const std::string place = route.method + " " + path;
    if (!came) broken(place, "has no answer", "");
    judge(place, asked);
  }

  void judge(const std::string& place, const InProcessRequest& asked) {
    const Bytes body = asked.body();
    static const bool shows = std::getenv("KESTRIN_FUZZ_SHOW") != nullptr;
    if (shows) std::fprintf(stderr, "%s: %d %.300s\n", place.c_str(), asked.status(), body.c_str());
    // No request may bring the services into trouble of their own; 503 stands for what is missing.
    if (asked.status() < 200 || asked.status() > 599 || asked.status() == 500)
      broken(place, "has a bad status", body);
    if (asked.contentType() == "application/json") {
      const auto json = Json::parse(body);
      if (!json) return broken(place, "is no JSON", body);
      if (asked.status() >= 400 && json->stringAt("error", "").empty())
        broken(place, "does not say why not", body);
      for (const char* key : {"sessionId", "research_id"})
        if (const auto id = json->stringAt(key)) lastId_ = *id;
      if (const Json* note = json->objectAt("note")) lastId_ = note->stringAt("id", lastId_);
    } else if (asked.contentType().starts_with("text/event-stream")) {
      for (const std::string& line : text::split(body, "\n")) {
        const bool fine = line.empty() || line == "data: [DONE]" ||
                          (line.starts_with("data: ") && Json::parse(line.substr(6)));
        if (!fine) broken(place, "has an event that is none", line);
      }
    }
  }
  [[noreturn]] static void broken(const std::string& place, const char* what,
                                  const std::string& answer) {
    std::fprintf(stderr, "the answer of %s %s: %s\n", place.c_str(), what, answer.c_str());
    std::abort();
  }

  std::unique_ptr<Simulation> engine_ = Simulation::make(1);
  SimulatedHttp http_{*engine_}, web_{*engine_};
  SimulatedSpeech speech_;
  SimulatedRandom random_{1};
  CompanionOptions options_;
  std::unique_ptr<Companion> companion_;
  std::vector<Route> routes_;
  std::string lastId_;
};

}  // namespace

/// Requests in a row, divided by lines of "====". Each has an answer that its client can read; with
/// KESTRIN_FUZZ_SHOW in the environment it is shown.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // What one input leaves behind is the next one's world, but not for ever.
  constexpr int inputsOfAWorld = 100;
  static std::unique_ptr<World> world;
  static int inputs = 0;
  if (inputs++ % inputsOfAWorld == 0) {
    world.reset();
    world = std::make_unique<World>();
    std::atexit([] { world.reset(); });
  }
  const std::string input(reinterpret_cast<const char*>(data), size);
  for (const std::string& request : text::split(input, "\n====\n")) world->ask(request);
  return 0;
}
