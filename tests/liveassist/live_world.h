#pragma once

#include <gtest/gtest.h>

#include "liveassist/live_assist.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::test {

using namespace std::chrono_literals;

constexpr const char* backend = "127.0.0.1:8780";

/// Live Assist on a simulated machine; the recogniser hears "line 1", "line 2", ...
struct LiveWorld : SimulatedWorld {
  explicit LiveWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    http.on("*", "*", ScriptedReply::body(R"({"success":true})"));
    http.on("POST", "127.0.0.1:8001/*", [this](const HttpRequest& request) {
      const std::string_view whole = request.body, head = "octet-stream\r\n\r\n";
      const size_t begin = whole.find(head) + head.size(), end = whole.rfind("\r\n--");
      const std::string_view pcm = whole.substr(begin, end - begin);
      heardSeconds += double(pcm.size()) / segmentBytesPerSecond;
      // Silence is sent as well, and comes back without words.
      const auto quiet = std::count(pcm.begin(), pcm.end(), '\0');
      const bool speech = size_t(quiet) < pcm.size() * 9 / 10;
      return ScriptedReply::json(
          Json::object({{"transcript", speech ? "This is line " + std::to_string(++heard) : ""}}));
    });
    answer("/live-assist/session/start", R"({"success":true,"sessionId":"s1"})");
    answer("/memory/live-context",
           R"({"success":true,"feedbackSummary":"It goes well","suggestions":["Ask"],
               "keywords":["price"],"memoryItems":[{"title":"Before"}],"docItems":[]})");
    main([this] {
      live.emplace(LiveAssist::Sources{
          dispatch, http, audio, files, random, settings, pasteboard, logger, deviceId, geminiKey,
          preferences, profiles,
          Endpoints{.asr = "http://127.0.0.1:8001", .backend = "http://127.0.0.1:8780"}});
    });
  }
  ~LiveWorld() {
    main([this] { live.reset(); });
    simulation->runFor(200s);
  }
  void answer(const std::string& path, const ScriptedReply& reply) {
    http.on("*", backend + path, reply);
  }
  void answer(const std::string& path, const char* body) {
    answer(path, ScriptedReply::body(body));
  }
  void main(const std::function<void()>& what, Duration time = 1s) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(time);
  }
  void start() {
    main([this] { view().startCapture(); });
  }
  /// Two seconds of speech and the silence that ends it.
  void say(LAAudioChannel channel) {
    const std::vector<float> speech(2 * 48000, 0.3F);
    if (channel == LAAudioChannel::microphone) {
      audio.speak("mic", speech, 48000);
    } else {
      audio.playSystemSound(speech, 48000);
    }
    simulation->runFor(5s);
  }
  std::vector<Json> sent(const std::string& path) {
    std::vector<Json> bodies;
    for (const auto& seen : http.requests(backend + path)) {
      bodies.push_back(Json::parse(seen.request.body).value_or(Json()));
    }
    return bodies;
  }
  std::string shownLines() {
    std::string out;
    for (const auto& line : view().chat().lines()) out += line.text + "\n";
    return out;
  }
  LiveAssistView& view() { return live->view(); }

  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager geminiKey{keychain, settings};
  UserPreferences preferences{settings};
  BehavioralProfileManager profiles{dispatch, settings};
  std::optional<LiveAssist> live;
  int heard = 0;
  double heardSeconds = 0;  ///< of both channels
};

}  // namespace kestrin::test
