#include "app/application.h"

#include <utility>

#include "app/hold_key.h"

namespace kestrin {
namespace {

/// The highest tier that the user may raise a run to; it raises nothing by itself.
constexpr const char* actionTierSetting = "pref_actionTier";

}  // namespace

Application::Application(Platform& platform, Options options)
    : platform_(platform),
      options_(std::move(options)),
      holdKeyName_(chosenHoldKey(platform.settings, platform.keyMonitor)),
      logFile_(LogFileRedirector::path(platform.files, platform.dispatch.clock().wallNow())),
      core_(platform, options_.endpoints),
      manager_(std::make_shared<StreamingRequestManager>(InsertionPorts::from(platform),
                                                         core_.logger, undelivered_)),
      mainWindow_({platform.dispatch, platform.random, core_.logger, core_.deviceId, core_.stats},
                  {platform.dispatch, platform.random, core_.logger, core_.research,
                   platform.pasteboard, platform.workspace},
                  holdKeyName_),
      location_(platform.dispatch, platform.place, platform.settings),
      preferenceChanges_(platform.dispatch, platform.settings, platform.notifications),
      applier_(platform.dispatch, platform.settings, platform.notifications, platform.audio,
               core_.player, core_.logger),
      recorder_(platform.dispatch, platform.audio, platform.files, platform.settings, core_.logger),
      overlay_(platform.dispatch, core_.logger, manager_, undelivered_),
      paste_(InsertionPorts::from(platform), core_.logger, undelivered_),
      actions_(platform, core_.logger,
               {.typeText = [this](std::string text) { delegate_.pasteText(text); },
                .playAudio = [this](Bytes wav) { core_.player.play(std::move(wav), {}); }}),
      commands_(actions_),
      delegate_(
          dictationServices(), platform.keyMonitor,
          std::make_shared<ContextCapture>(platform.workspace, platform.accessibility,
                                           platform.browser),
          std::make_shared<WorkspaceFileService>(platform.dispatch, platform.files, core_.logger)),
      notices_(platform.dispatch, platform.userNotifications, platform.notifications, core_.logger),
      setup_(core_, {.endpoints = options_.endpoints,
                     .holdKey = holdKeyName_,
                     .display = {},
                     .keyTrial = Doctor::KeyTrial::looks,
                     .companionProgram = options_.companionProgram}),
      startSequence_({.platform = platform,
                      .core = core_,
                      .mainWindow = mainWindow_,
                      .recorder = recorder_,
                      .delegate = delegate_,
                      .holdKeyName = holdKeyName_,
                      .companionProgram = options_.companionProgram}),
      serviceWatch_(platform.dispatch, platform.http, options_.endpoints),
      pages_(core_, preferencesServices(), mainWindow_, holdKeyName_),
      calls_(callsSources(core_, options_.mediaLibrary,
                          [this]() -> LiveAssist& { return pages_.liveAssist(); })) {
  observe();
  connectCalls();
}

Application::~Application() { stop(); }

void Application::observe() {
  startSequence_.hooks.startAllBackgroundCaches = [this] { pages_.home().start(); };
  startSequence_.hooks.bringToFront = [this] {
    if (!options_.staysInTray) applicationShouldHandleReopen();
  };
  const auto tellChange = lifetime_.guard([this] { changed(); });
  delegate_.onChange = tellChange;
  mainWindow_.onChange = tellChange;
  mainWindow_.onNotification =
      lifetime_.guard([this](const UserNotification& notification, const Json& userInfo) {
        notices_.show(notification, userInfo);
      });
  delegate_.onPress = lifetime_.guard([this] { userWasActive(); });
  recorder_.onPreRollChanged = tellChange;
  startSequence_.onChange = tellChange;
  setup_.onChange = tellChange;
  setup_.onTell = lifetime_.guard([this] { showSetup(); });
  startSequence_.hooks.onPrompt =
      lifetime_.guard([this](const ServicePrompt& prompt) { showPrompt(prompt); });
  notices_.startAnyway = lifetime_.guard([this] { setup_.accept(); });
  notices_.openResearch = lifetime_.guard([this](const std::string& sessionId) {
    applicationShouldHandleReopen();
    mainWindow_.openResearch(sessionId);
  });
  notices_.open = lifetime_.guard([this] { applicationShouldHandleReopen(); });
  manager_->onRequestsChange = lifetime_.guard([this] {
    overlay_.updateStreamingRequestsUI();
    changed();
  });
  overlay_.onSendAgain = lifetime_.guard([this] { delegate_.retryUndelivered(); });
  undelivered_.onChange = [main = platform_.dispatch.mainQueue(),
                           update = std::function<void()>(lifetime_.guard([this] {
                             overlay_.updateStreamingRequestsUI();
                             changed();
                           }))] { main->post(update); };
  subscriptions_.push_back(platform_.notifications.observe(
      "ExecuteAction", lifetime_.guard([this](const Json& action) { actions_.execute(action); })));
  subscriptions_.push_back(platform_.notifications.observe(
      "BackgroundResearchStarted", lifetime_.guard([this](const Json& info) {
        // The agent has begun it already: it is watched, not asked for again.
        if (const auto id = info.stringAt("research_id", ""); !id.empty()) {
          mainWindow_.watchBackgroundResearch(id);
        }
      })));
  subscriptions_.push_back(platform_.notifications.observe(
      "NavigateToSettings", lifetime_.guard([this](const Json&) { manageAccount(); })));
  const std::function<void()> keepTier = lifetime_.guard([this] {
    if (!mayElevate()) setActionTier(SafetyTier::safe);
  });
  subscriptions_.push_back(platform_.settings.observe(
      [main = platform_.dispatch.mainQueue(), keepTier](const std::string& key) {
        if (key == actionTierSetting) main->post(keepTier);
      }));
}

void Application::connectCalls() {
  calls_.hooks = {
      .notify =
          [this](UserNotification notification, Json userInfo,
                 std::function<void(const Result<uint32_t>&)> onShown) {
            notices_.show(std::move(notification), std::move(userInfo), std::move(onShown));
          },
      .navigateToTab = [this](const std::string& tab) { mainWindow_.navigateToTab(tab); },
      .requestUserAttention =
          [this] {
            if (onAttention) onAttention();
          },
      .playRingtone =
          [this] {
            if (onRing) onRing();
          },
      .missed = [this] { pages_.home().activity().callWasMissed(); }};
  startSequence_.hooks.startPresence = [this] { calls_.start(); };
  startSequence_.hooks.stopPresence = [this] { calls_.stop(); };
  startSequence_.hooks.setupGlobalIncomingCallHandler = [this] {
    calls_.setupGlobalIncomingCallHandler();
  };
  notices_.answerCall = lifetime_.guard(
      [this](const Json&, std::function<void(const Status&)> done) { calls_.answer(done); });
  notices_.declineCall = lifetime_.guard([this](const Json&) { calls_.decline(); });
  notices_.viewSummary = lifetime_.guard([this](const Json&) {
    applicationShouldHandleReopen();
    mainWindow_.navigateToTab(Calls::callsTab);
  });
  subscriptions_.push_back(
      platform_.notifications.observe("CallBackRequested", lifetime_.guard([this](const Json&) {
        applicationShouldHandleReopen();
        mainWindow_.navigateToTab(Calls::callsTab);
      })));
}

void Application::manageAccount() {
  mainWindow_.navigateToTab("Settings");
  pages_.preferences().selectPage(PreferencePage::integrations);
  if (onManageAccount) onManageAccount();
}

void Application::userWasActive() { pages_.home().activity().userWasActive(); }

void Application::obeyCall(const std::string& what) {
  if (what == "answer") {
    return calls_.answer(lifetime_.guard([this](const Status& answered) {
      if (!answered) mainWindow_.updateStatus(answered.error().description, StatusColor::orange);
    }));
  }
  if (what == "hangup") return calls_.hangUp();
  applicationShouldHandleReopen();
  calls_.place(what);
}

DictationServices Application::dictationServices() {
  return {.dispatch = platform_.dispatch,
          .random = platform_.random,
          .logger = core_.logger,
          .manager = manager_,
          .transcription = core_.transcription,
          .recorder = recorder_,
          .player = core_.player,
          .overlay = overlay_,
          .mainWindow = mainWindow_,
          .actions = actions_,
          .commands = commands_,
          .paste = paste_,
          .undelivered = undelivered_,
          .holdKeyName = holdKeyName_,
          .authToken = [this] { return core_.authToken(); },
          .forgetVoiceProfile = [this] { core_.personality.forgetVoiceProfile(); },
          .countRequest =
              [this](const std::string& mode) {
                platform_.settings.countUp("totalVoiceCommands");
                platform_.settings.countUp("modeUsage_" + mode);
              }};
}

void Application::start() {
  core_.logger.log("App", LogLevel::info, "Application launched - comprehensive logging enabled");
  core_.warmUp();
  applier_.start(windowEffects_);
  // A place that the user typed is better than any that is found.
  if (core_.preferences.displayLocation() == UserPreferences::noLocation) location_.update({});
  // Until the services are up, what this machine kept of it.
  mainWindow_.fetchHistoryFromServer();
  notices_.registerNotificationCategories();
  setup_.begin(lifetime_.guard(
      [this](bool accessibilityTrusted) { startSequence_.startApp(accessibilityTrusted); }));
}

void Application::stop(std::function<void()> completion) {
  setup_.stop();
  if (delegate_.isRecording()) delegate_.cancel();
  platform_.keyMonitor.stop();
  core_.behavioralProfile.persistIfChanged();
  startSequence_.applicationWillTerminate(std::move(completion));
}

void Application::applicationShouldHandleReopen() {
  if (onShow) onShow();
}

void Application::showSetup() {
  const auto summary = setup_.summary();
  UserNotification notification{.title = "Kestrin", .body = summary};
  if (setup_.isShown()) {
    notification.category = NotificationCategories::setup;
    mainWindow_.updateStatus("⚠️ " + summary.substr(0, summary.find('\n')),
                             StatusColor::orange);
    // What is missing stands there in full.
    if (!options_.staysInTray) applicationShouldHandleReopen();
  }
  notices_.show(std::move(notification), {});
}

void Application::showPrompt(const ServicePrompt& prompt) {
  notices_.ask(prompt.title, prompt.text, prompt.acceptLabel, prompt.declineLabel, prompt.accept);
}

void Application::obey(ControlCommand command) {
  switch (command) {
    case ControlCommand::press:
      return delegate_.keyEdge(KeyEdge::holdDown);
    case ControlCommand::release:
      return delegate_.keyEdge(KeyEdge::holdUp);
    case ControlCommand::toggle:
      return delegate_.toggle();
    case ControlCommand::cancel:
      return delegate_.cancel();
    case ControlCommand::retry:
      if (!delegate_.retryUndelivered()) {
        mainWindow_.updateStatus("Nothing to send again", StatusColor::orange);
      }
      return;
    case ControlCommand::elevate:
      if (mayElevate()) return setActionTier(SafetyTier::elevated);
      return mainWindow_.updateStatus("Key presses and scripts are switched off in the settings",
                                      StatusColor::orange);
    case ControlCommand::lower:
      return setActionTier(SafetyTier::safe);
    case ControlCommand::show:
      return applicationShouldHandleReopen();
    case ControlCommand::quit:
      if (onQuit) onQuit();
      return;
  }
}

bool Application::mayElevate() const {
  return safetyTierFromText(platform_.settings.string(actionTierSetting, "elevated")) ==
         SafetyTier::elevated;
}

void Application::setActionTier(SafetyTier tier) {
  if (std::exchange(actions_.currentTier, tier) == tier) return;
  const bool elevated = tier == SafetyTier::elevated;
  const std::string line = elevated ? "Actions may press keys and run scripts until Kestrin ends"
                                    : "Actions press no keys and run no scripts";
  core_.logger.log("App", LogLevel::warning, line);
  mainWindow_.updateStatus(line, elevated ? StatusColor::orange : StatusColor::primary);
  changed();
}

void Application::forgetHistory() {
  mainWindow_.history().clearHistory();
  undelivered_.clear();
}

PreferencesServices Application::preferencesServices() {
  return {.platform = platform_,
          .logger = core_.logger,
          .changes = preferenceChanges_,
          .geminiKey = core_.geminiKey,
          .deviceId = core_.deviceId,
          .player = core_.player,
          .endpoints = options_.endpoints,
          .holdKeyName = holdKeyName_,
          .window = windowEffects_,
          .forgetHistory = [this] { forgetHistory(); },
          .logFile = logFile_};
}

void Application::changed() {
  report_.set({.ready = delegate_.isAppReady,
               .recording = delegate_.isRecording(),
               .active = manager_->activeRequestCount(),
               .statusLine = mainWindow_.status().text,
               .actionTier = std::string(safetyTierText(actions_.currentTier)),
               .services = startSequence_.warmup().status()});
  if (onChange) onChange();
}

}  // namespace kestrin
