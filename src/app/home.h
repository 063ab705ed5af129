#pragma once

#include "app/core_services.h"
#include "app/main_window_controller.h"
#include "home/activity_tracker.h"
#include "home/calendar_view.h"
#include "home/home_view.h"
#include "home/mail/gmail_panel.h"
#include "identity/google/google_account_view.h"

namespace kestrin {

/// The assistant's home whole: calendar, speech, caches, triggers and the page. Main queue only;
/// must be destroyed there.
class Home {
 public:
  /// `window`: where status lines and tabs go; none in the terminal.
  Home(CoreServices& core, MainWindowController* window, std::string holdKeyName,
       std::function<std::vector<VoiceNote>()> notes);

  /// Caches and triggers begin to work by themselves.
  void start();

  /// An account was linked or unlinked, or may do something else than before.
  std::function<void()> onLinkChanged;

  HomeView& view() { return view_; }
  HomeCaches& caches() { return caches_; }
  CalendarService& calendar() { return calendar_; }
  CalendarView& calendarView() { return calendarView_; }
  SpeechService& speech() { return speech_; }
  TriggerService& triggers() { return triggers_; }
  ActivityTracker& activity() { return activity_; }
  GmailPanel& gmail() { return gmail_; }
  GoogleAccountView& googleAccount() { return googleAccount_; }

 private:
  std::string lastStatus_;  ///< that the home put into the window
  HomeAgent agent_;
  AIPersonaService persona_;
  SpeechService speech_;
  CalendarService calendar_;
  GoogleAuthService googleAuth_;
  GoogleAccountView googleAccount_;
  GmailPanel gmail_;
  HomeCaches caches_;
  TriggerService triggers_;
  HomeView view_;
  CalendarView calendarView_;
  ActivityTracker activity_;
};

}  // namespace kestrin
