#include "app/pages.h"

#include <utility>

#include "app/live_assist_sources.h"
#include "app/terminal_services.h"

namespace kestrin {

Pages::Pages(CoreServices& core, PreferencesServices preferences, MainWindowController& window,
             std::string holdKeyName)
    : core_(core),
      preferencesServices_(std::move(preferences)),
      window_(window),
      holdKeyName_(std::move(holdKeyName)) {}

Pages::~Pages() = default;

PreferencesView& Pages::preferences() {
  if (!preferences_) {
    preferences_ = std::make_unique<PreferencesView>(preferencesServices_);
    preferences_->loadSavedPreferences();
  }
  return *preferences_;
}

ModesView& Pages::modes() {
  if (!modes_) {
    Platform& platform = core_.platform;
    modes_ = std::make_unique<ModesView>(ModesView::Services{.dispatch = platform.dispatch,
                                                             .settings = platform.settings,
                                                             .preferences = core_.preferences,
                                                             .deviceId = core_.deviceId,
                                                             .geminiKey = core_.geminiKey,
                                                             .agent = core_.agent,
                                                             .pasteboard = platform.pasteboard,
                                                             .logger = core_.logger});
  }
  return *modes_;
}

LogsView& Pages::logs() {
  if (!logs_) {
    Platform& platform = core_.platform;
    logs_ = std::make_unique<LogsView>(platform.dispatch, platform.notifications, core_.logger,
                                       platform.files);
  }
  return *logs_;
}

LoginWindowController& Pages::login() {
  if (!login_) login_ = std::make_unique<LoginWindowController>(core_.auth);
  return *login_;
}

LiveAssist& Pages::liveAssist() {
  if (!liveAssist_) {
    Platform& platform = core_.platform;
    liveAssist_ = std::make_unique<LiveAssist>(
        liveAssistSources(core_, platform.dispatch, platform.http, platform.audio));
    if (onLiveAssist) onLiveAssist(*liveAssist_);
  }
  return *liveAssist_;
}

std::unique_ptr<AudioRecorder> Pages::makeRecorder() const {
  Platform& platform = core_.platform;
  return std::make_unique<AudioRecorder>(platform.dispatch, platform.audio, platform.files,
                                         platform.settings, core_.logger,
                                         AudioRecorder::PreRoll::never);
}

NotesView& Pages::notes() {
  if (!notes_) {
    notes_ = std::make_unique<NotesView>(NotesView::Services{
        core_.platform.dispatch, core_.logger, core_.notes, [this] { return makeRecorder(); }});
    notes_->load();
  }
  return *notes_;
}

PersonalityView& Pages::personality() {
  if (!personality_) {
    personality_ = std::make_unique<PersonalityView>(
        PersonalityView::Services{core_.platform.dispatch, core_.platform.settings,
                                  core_.personality, [this] { return makeRecorder(); }});
  }
  return *personality_;
}

Home& Pages::home() {
  if (!home_) {
    home_ =
        std::make_unique<Home>(core_, &window_, holdKeyName_, [this] { return notes().notes(); });
    home_->onLinkChanged = [this] {
      if (preferences_) preferences_->loadSavedPreferences();
    };
  }
  return *home_;
}

TerminalView& Pages::terminal() {
  if (!terminal_) terminal_ = std::make_unique<TerminalView>(terminalServices(core_, home()));
  return *terminal_;
}

}  // namespace kestrin
