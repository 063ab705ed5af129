#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "home/calendar_service.h"
#include "home/mail/email.h"
#include "home/speech_service.h"
#include "notes/voice_note.h"

namespace kestrin {

/// What the home page has ready: briefing with its speech, news, a summary of the notes, the
/// weather. Refreshed by timers; a refresh that fails leaves what was there. For the run only. Main
/// queue only; must be destroyed there.
class HomeCaches {
 public:
  static constexpr std::chrono::seconds newsInterval{600}, notesInterval{1200},
      briefingInterval{600}, firstBriefing{8};

  struct Services {
    Dispatch& dispatch;
    SettingsStore& settings;
    Logger& logger;
    HomeAgent& agent;
    SpeechService& speech;
    AIPersonaService& persona;
    CalendarService& calendar;
    /// The notes, newest first. May be empty.
    std::function<std::vector<VoiceNote>()> notes;
    /// May be empty: there is no mail.
    std::function<MailSummary()> mail;
    std::string holdKeyName;
  };
  explicit HomeCaches(Services services) : services_(std::move(services)) {}

  /// Once, after sign-in and setup. The timers run until this is gone.
  void startAllBackgroundCaches();
  void refreshNewsCache(std::function<void()> completion = {});
  void refreshNotesSummaryCache();
  /// While one runs another returns at once, and its `completion` is not called.
  void refreshLatestBriefingCache(std::function<void()> completion = {});
  void fetchWeatherCache(
      std::function<void(const std::string& spoken, const std::string& oneliner)> completion);
  /// Speaks what is ready, else makes it first.
  void playLatestBriefing();

  const std::vector<DynamicPanelItem>& cachedNewsPanelItems() const { return newsItems_; }
  const std::string& cachedNewsSpeechText() const { return newsSpeech_; }
  const Bytes& cachedNewsAudioData() const { return newsAudio_; }
  const std::string& cachedNotesSummary() const { return notesSummary_; }
  const std::string& cachedLatestBriefingText() const { return briefingText_; }
  bool hasBriefingAudio() const { return !briefingAudio_.empty(); }
  const std::string& cachedWeatherSpoken() const { return weatherSpoken_; }
  const std::string& cachedWeatherOneliner() const { return weatherOneliner_; }
  /// Why there is no weather; empty when there is.
  const std::string& weatherProblem() const { return weatherProblem_; }
  bool isLatestBriefingLoading() const { return isBriefingLoading_; }
  bool isNewsCacheLoading() const { return isNewsLoading_; }

  std::function<void(const std::string& text, bool failed)> onStatus;
  /// After every change.
  std::function<void()> onChange;

 private:
  void compose(const std::vector<CalendarEvent>& events, std::function<void()> completion);
  void speakPrepared();
  void status(const std::string& text, bool failed = false) {
    if (onStatus) onStatus(text, failed);
  }
  void changed() {
    if (onChange) onChange();
  }

  const Services services_;
  std::vector<DynamicPanelItem> newsItems_;
  std::string newsSpeech_, notesSummary_, briefingText_;
  std::string weatherSpoken_, weatherOneliner_, weatherProblem_;
  Bytes newsAudio_, briefingAudio_;
  bool isNewsLoading_ = false, isBriefingLoading_ = false;
  TimerHandle newsTimer_, notesTimer_, briefingTimer_, firstBriefingTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
