#pragma once

#include <functional>
#include <memory>

#include "app/core_services.h"
#include "app/home.h"
#include "diagnostics/logs_view.h"
#include "diagnostics/terminal/terminal_view.h"
#include "identity/login_window_controller.h"
#include "liveassist/live_assist.h"
#include "notes/notes_view.h"
#include "usermodel/personality/personality_view.h"
#include "usermodel/preferences/modes_view.h"
#include "usermodel/preferences/preferences_view.h"

namespace kestrin {

/// The pages and windows that nobody may ever open: each is made when it is first wanted and then
/// kept, so that its state outlives the widget that draws it. Main queue.
class Pages {
 public:
  Pages(CoreServices& core, PreferencesServices preferences, MainWindowController& window,
        std::string holdKeyName);
  ~Pages();

  PreferencesView& preferences();
  ModesView& modes();
  LogsView& logs();
  LoginWindowController& login();
  LiveAssist& liveAssist();
  NotesView& notes();
  TerminalView& terminal();
  Home& home();
  PersonalityView& personality();

  /// When Live Assist is made: the first time that the page or a call wants it.
  std::function<void(LiveAssist&)> onLiveAssist;

 private:
  std::unique_ptr<AudioRecorder> makeRecorder() const;

  CoreServices& core_;
  const PreferencesServices preferencesServices_;
  MainWindowController& window_;
  const std::string holdKeyName_;
  std::unique_ptr<PreferencesView> preferences_;
  std::unique_ptr<ModesView> modes_;
  std::unique_ptr<LogsView> logs_;
  std::unique_ptr<LoginWindowController> login_;
  std::unique_ptr<LiveAssist> liveAssist_;
  std::unique_ptr<NotesView> notes_;
  std::unique_ptr<PersonalityView> personality_;
  std::unique_ptr<Home> home_;
  std::unique_ptr<TerminalView> terminal_;
};

}  // namespace kestrin
