#pragma once

#include <optional>

#include "home/home_view.h"
#include "identity/keychain_helper.h"
#include "platform/audio/wav.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"

namespace kestrin::test {

using namespace std::chrono_literals;

/// The home on a simulated machine whose agent answers well until told otherwise.
struct HomeWorld : SimulatedWorld {
  static constexpr const char* agentHost = "127.0.0.1:8765";

  explicit HomeWorld(uint64_t seed = 1) : SimulatedWorld(seed) {
    answer("POST", "/process/stream",
           "data: {\"mode\":\"plain\"}\n\ndata: "
           "{\"news_items\":[{\"title\":\"One\",\"url\":\"https://n/1\"},"
           "{\"title\":\"\"},{\"title\":\"Two\",\"url\":\"javascript:x\",\"source\":\"S\"}]}\n\n"
           "data: {\"chunk\":\"The \"}\n\nbroken\ndata: {\"chunk\":\"news.\"}\n\ndata: [DONE]\n");
    answer("POST", "/tts",
           Json::object({{"success", true}, {"audio", text::base64Encode(sound)}}).dump());
    answer("GET", "/weather?location=",
           R"({"success":true,"spoken":"It is mild.","weather":{"condition":"Fair",
               "condition_icon":"☀️","temp_c":21.7,"location":"Lyon"}})");
    answer("POST", "/triggers/evaluate", R"({"triggers":[]})");
    const Endpoints endpoints{"", "", "http://127.0.0.1:8765", "http://127.0.0.1:8780"};
    main([&] {
      agent.emplace(
          HomeAgent::Services{dispatch, http, settings, deviceId, geminiKey, auth, endpoints});
      persona.emplace(dispatch.clock(), random);
      player.emplace(dispatch, audio, settings, logger);
      speech.emplace(*agent, *player, *persona, logger, "Hold Right Ctrl to ask anything");
      calendar.emplace(dispatch, http, calendars, settings, logger, deviceId, endpoints);
      gmail.emplace(GmailPanel::Services{dispatch, http, settings, logger, deviceId, *speech,
                                         workspace, endpoints.backend});
      caches.emplace(HomeCaches::Services{dispatch,
                                          settings,
                                          logger,
                                          *agent,
                                          *speech,
                                          *persona,
                                          *calendar,
                                          [this] { return notes; },
                                          {},
                                          "Right Ctrl"});
      triggers.emplace(TriggerService::Services{
          dispatch, logger, *agent, *speech, *calendar, userNotifications, {}});
      view.emplace(HomeView::Services{dispatch,
                                      settings,
                                      logger,
                                      *agent,
                                      *speech,
                                      *persona,
                                      *calendar,
                                      *caches,
                                      [this](const std::string& tab) { tabs += tab; },
                                      {},
                                      &*gmail});
      const auto status = [this](const std::string& line, bool failed) {
        statuses += (failed ? "!" : "") + line + "|";
      };
      speech->onStatus = status;
      caches->onStatus = status;
      view->onStatus = status;
    });
  }
  ~HomeWorld() {
    main([this] {
      view.reset();
      triggers.reset();
      caches.reset();
      calendar.reset();
      gmail.reset();
      speech.reset();
      agent.reset();
      player.reset();
    });
  }
  void answer(const char* method, const std::string& path, const std::string& body) {
    http.on(method, agentHost + path, ScriptedReply::body(body));
  }
  void main(const std::function<void()>& what, Duration time = 20s) {
    dispatch.mainQueue()->sync(what);
    simulation->runFor(time);
  }
  size_t asked(const std::string& path) const { return http.requests(agentHost + path).size(); }
  std::string latest() const { return caches->cachedLatestBriefingText(); }
  /// Without the closing, which is chance.
  std::string daily(const std::vector<CalendarEvent>& events, int mail = 0,
                    const std::vector<std::string>& subjects = {}) {
    const std::string whole = persona->generateDailyBriefing(events, "", mail, subjects);
    for (const char* piece : {" Your schedule", " You've", " You "}) {
      if (const size_t at = whole.find(piece, 10); at != std::string::npos) return whole.substr(at);
    }
    return whole;
  }
  CalendarEvent event(const std::string& title, Duration fromNow) {
    CalendarEvent out;
    out.title = title;
    out.startDate = dispatch.clock().wallNow() +
                    std::chrono::duration_cast<std::chrono::system_clock::duration>(fromNow);
    out.endDate = out.startDate + 1h;
    return out;
  }

  const Bytes sound = wav::write(Bytes(3200, '\1'));
  Logger logger{dispatch, notifications};
  DeviceIdManager deviceId{files, settings, random};
  KeychainHelper keychain{secrets, logger};
  GeminiKeyManager geminiKey{keychain, settings};
  FirebaseAuthService auth{dispatch, http, files, logger, {"http://127.0.0.1:9099", "key"}};
  std::vector<VoiceNote> notes{{"n", std::string(500, 'n'), {}, "2026-03-01T10:00:00Z", {}}};
  std::optional<HomeAgent> agent;
  std::optional<AIPersonaService> persona;
  std::optional<AudioPlayerService> player;
  std::optional<SpeechService> speech;
  std::optional<CalendarService> calendar;
  std::optional<GmailPanel> gmail;
  std::optional<HomeCaches> caches;
  std::optional<TriggerService> triggers;
  std::optional<HomeView> view;
  std::string statuses, tabs;
};

}  // namespace kestrin::test
