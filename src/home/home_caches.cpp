#include "home/home_caches.h"

#include <cmath>
#include <utility>

#include "platform/text/text.h"
#include "usermodel/user_preferences.h"

namespace kestrin {
namespace {

constexpr std::chrono::seconds newsTimeout{60}, notesTimeout{30}, weatherTimeout{8};
constexpr size_t summarisedNotes = 5, summarisedCharacters = 200;
constexpr size_t briefedHeadlines = 3, loggedCharacters = 120;

/// "⛅ 21°C, Partly cloudy — Lyon"
std::string oneLiner(const Json& weather) {
  const auto degrees = static_cast<int64_t>(std::trunc(weather.numberAt("temp_c").value_or(0)));
  return weather.stringAt("condition_icon", "") + " " + std::to_string(degrees) + "°C, " +
         weather.stringAt("condition", "") + " — " + weather.stringAt("location", "");
}

}  // namespace

void HomeCaches::startAllBackgroundCaches() {
  Dispatch& dispatch = services_.dispatch;
  const auto main = dispatch.mainQueue();
  if (!newsTimer_) {
    refreshNewsCache();
    newsTimer_ =
        dispatch.every(main, newsInterval, lifetime_.guard([this] { refreshNewsCache(); }));
  }
  if (!notesTimer_) {
    refreshNotesSummaryCache();
    notesTimer_ = dispatch.every(main, notesInterval,
                                 lifetime_.guard([this] { refreshNotesSummaryCache(); }));
  }
  if (!briefingTimer_) {
    firstBriefingTimer_ = dispatch.after(main, firstBriefing,
                                         lifetime_.guard([this] { refreshLatestBriefingCache(); }));
    briefingTimer_ = dispatch.every(main, briefingInterval,
                                    lifetime_.guard([this] { refreshLatestBriefingCache(); }));
  }
  if (weatherSpoken_.empty()) fetchWeatherCache({});
}

void HomeCaches::refreshNewsCache(std::function<void()> completion) {
  if (isNewsLoading_) return;
  isNewsLoading_ = true;
  services_.agent.ask(
      "Tell me the latest news", "auto", newsTimeout,
      lifetime_.guard([this, completion = std::move(completion)](const Result<AgentReply>& reply) {
        isNewsLoading_ = false;
        if (reply) {
          newsItems_ = reply->news;
          // What an answer without words leaves is still the last that was said.
          if (!reply->text.empty()) {
            newsSpeech_ = reply->text;
            newsAudio_ = reply->audio;
          }
          services_.logger.print("📰 News cache refreshed: " + std::to_string(newsItems_.size()) +
                                 " items");
        } else {
          services_.logger.print("⚠️ News refresh failed: " + reply.error().description);
        }
        if (completion) completion();
        changed();
      }));
}

void HomeCaches::refreshNotesSummaryCache() {
  const auto notes = services_.notes ? services_.notes() : std::vector<VoiceNote>{};
  if (notes.empty()) return;
  std::vector<std::string> lines;
  for (size_t i = 0; i < std::min(notes.size(), summarisedNotes); ++i)
    lines.push_back("- " + text::prefix(notes[i].content, summarisedCharacters));
  services_.agent.ask(
      "Summarize these notes in 2-3 concise sentences for a quick audio briefing:\n" +
          text::join(lines, "\n"),
      "plain", notesTimeout, lifetime_.guard([this](const Result<AgentReply>& reply) {
        if (!reply || reply->text.empty()) return;
        notesSummary_ = reply->text;
        services_.logger.print("📝 Notes summary cache refreshed");
        changed();
      }));
}

void HomeCaches::fetchWeatherCache(
    std::function<void(const std::string&, const std::string&)> completion) {
  const std::string location = services_.settings.string(UserPreferences::userLocationKey);
  services_.agent.get(
      "/weather?location=" + urlEncode(location), weatherTimeout,
      lifetime_.guard([this, completion = std::move(completion)](const Result<Json>& answer) {
        if (answer && answer->boolAt("success").value_or(false)) {
          weatherSpoken_ = answer->stringAt("spoken", "");
          const Json* weather = answer->objectAt("weather");
          weatherOneliner_ = weather ? oneLiner(*weather) : "";
          weatherProblem_.clear();
        } else {
          weatherProblem_ =
              answer ? answer->stringAt("error", "parse error") : answer.error().description;
          services_.logger.print("⚠️ Weather fetch failed: " + weatherProblem_);
        }
        if (completion) completion(weatherSpoken_, weatherOneliner_);
        changed();
      }));
}

void HomeCaches::refreshLatestBriefingCache(std::function<void()> completion) {
  if (isBriefingLoading_) return;
  isBriefingLoading_ = true;
  changed();
  // Both at once; whichever ends last goes on.
  const auto open = std::make_shared<int>(2);
  const auto events = std::make_shared<std::vector<CalendarEvent>>();
  const auto next = [this, open, events, completion = std::move(completion)] {
    if (--*open == 0) compose(*events, completion);
  };
  services_.calendar.fetchEvents(
      lifetime_.guard([events, next](const std::vector<CalendarEvent>& found) {
        *events = found;
        next();
      }));
  fetchWeatherCache([next](const std::string&, const std::string&) { next(); });
}

void HomeCaches::compose(const std::vector<CalendarEvent>& events,
                         std::function<void()> completion) {
  const MailSummary mail = services_.mail ? services_.mail() : MailSummary{};
  std::vector<std::string> headlines;
  for (size_t i = 0; i < std::min(newsItems_.size(), briefedHeadlines); ++i)
    headlines.push_back(newsItems_[i].title);
  briefingText_ = services_.persona.generateLatestBriefing(
      events, services_.settings.string(UserPreferences::userNameKey), mail.unread, mail.subjects,
      headlines, weatherSpoken_);
  services_.logger.print(
      "🎙️ Latest briefing text: " + text::prefix(briefingText_, loggedCharacters) + "...");
  changed();
  services_.speech.ttsToData(
      briefingText_, lifetime_.guard([this, completion = std::move(completion)](Bytes audio) {
        isBriefingLoading_ = false;
        services_.logger.print(audio.empty() ? "🎙️ Latest briefing has no audio"
                                             : "🎙️ Latest briefing audio: " +
                                                   std::to_string(audio.size()) + " bytes");
        if (!audio.empty()) briefingAudio_ = std::move(audio);
        if (completion) completion();
        changed();
      }));
}

void HomeCaches::speakPrepared() {
  if (!briefingAudio_.empty()) {
    status("🔊 Here's your latest...");
    return services_.speech.play(briefingAudio_);
  }
  status("🔊 Speaking your latest...");
  services_.speech.speakText(briefingText_, lifetime_.guard([this](bool spoken) {
    if (spoken) status("Ready — hold " + services_.holdKeyName + " to speak");
  }));
}

void HomeCaches::playLatestBriefing() {
  if (!briefingAudio_.empty() || !briefingText_.empty()) return speakPrepared();
  status("🎙️ Preparing your latest update...");
  refreshLatestBriefingCache([this] {
    if (briefingText_.empty()) return status("Could not generate briefing", true);
    speakPrepared();
  });
}

}  // namespace kestrin
