#include "app/application.h"

#include <utility>

namespace kestrin {
namespace {

constexpr const char* holdKeySetting = "pref_holdKey";
constexpr const char* actionTierSetting = "pref_actionTier";

std::string chosenHoldKey(Platform& platform) {
  const auto chosen = platform.settings.string(holdKeySetting);
  if (!chosen.empty()) return chosen;
  const auto available = platform.keyMonitor.availableKeys();
  return available.empty() ? "Right Ctrl" : available.front();
}

}  // namespace

Application::Application(Platform& platform, Options options)
    : platform_(platform),
      options_(std::move(options)),
      holdKeyName_(chosenHoldKey(platform)),
      core_(platform, options_.endpoints),
      manager_(std::make_shared<StreamingRequestManager>(InsertionPorts::from(platform),
                                                         core_.logger, undelivered_)),
      mainWindow_({platform.dispatch, platform.random, core_.logger, core_.deviceId, core_.stats},
                  holdKeyName_),
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
      readiness_(platform.dispatch, platform.http, core_.logger, options_.endpoints),
      host_(
          makeServiceHost(platform, core_.logger, options_.endpoints, options_.companionProgram)) {
  const auto tellChange = lifetime_.guard([this] { changed(); });
  delegate_.onChange = tellChange;
  mainWindow_.onChange = tellChange;
  recorder_.onPreRollChanged = tellChange;
  readiness_.onServicesChange = tellChange;
  readiness_.onStatus = lifetime_.guard([this](const StatusLine& line) {
    if (!delegate_.isAppReady) mainWindow_.updateStatus(line.text, line.color);
  });
  manager_->onRequestsChange = lifetime_.guard([this] {
    overlay_.updateStreamingRequestsUI();
    changed();
  });
  overlay_.onSendAgain = lifetime_.guard([this] { delegate_.retryUndelivered(); });
  undelivered_.onChange = [main = platform.dispatch.mainQueue(),
                           update = std::function<void()>(lifetime_.guard([this] {
                             overlay_.updateStreamingRequestsUI();
                             changed();
                           }))] { main->post(update); };
  subscriptions_.push_back(platform.notifications.observe(
      "ExecuteAction", lifetime_.guard([this](const Json& action) { actions_.execute(action); })));
  const std::function<void()> takeTier = lifetime_.guard([this] { takeActionTier(); });
  subscriptions_.push_back(platform.settings.observe(
      [main = platform.dispatch.mainQueue(), takeTier](const std::string& key) {
        if (key == actionTierSetting) main->post(takeTier);
      }));
  takeActionTier();
}

Application::~Application() { stop(); }

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
          .authToken = {},
          .forgetVoiceProfile = {}};
}

void Application::start() {
  core_.logger.log("App", LogLevel::info, "Application launched");
  core_.warmUp();
  AudioRecorder::applyPreferences(platform_.settings);
  delegate_.setupGlobalEventTap();
  // Until the services are up, what this machine kept of it.
  mainWindow_.fetchHistoryFromServer();
  bringUpServices();
}

void Application::bringUpServices() {
  mainWindow_.updateStatus("Starting Kestrin Intelligence...", StatusColor::orange);
  awaitingHost_ = true;
  host_->start({.onStatus = lifetime_.guard(
                    [this](const ServiceHostStatus& status) { hostChanged(status); })});
}

/// Whatever becomes of the services at first, readiness finds out what answers.
void Application::hostChanged(const ServiceHostStatus& status) {
  const bool settled = status.state == ServiceHostStatus::State::running ||
                       status.state == ServiceHostStatus::State::failed;
  if (settled && std::exchange(awaitingHost_, false)) probeServices();
}

void Application::probeServices() {
  mainWindow_.fetchHistoryFromServer();
  mainWindow_.history().fetchStats();
  readiness_.start(lifetime_.guard([this](bool allAnswered) { becomeReady(allAnswered); }));
}

/// The application opens whatever the services do: each dictation reports its own error.
void Application::becomeReady(bool allAnswered) {
  delegate_.isAppReady = true;
  if (allAnswered) {
    mainWindow_.updateStatus(nameHoldKey("✅ Ready — Hold fn 🌐 to record", holdKeyName_),
                             StatusColor::primary);
  }
  changed();
}

void Application::stop() {
  if (delegate_.isRecording()) delegate_.cancel();
  platform_.keyMonitor.stop();
  host_->stop();
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
    case ControlCommand::show:
      if (onShow) onShow();
      return;
    case ControlCommand::quit:
      if (onQuit) onQuit();
      return;
  }
}

void Application::takeActionTier() {
  actions_.currentTier = safetyTierFromText(platform_.settings.string(actionTierSetting, "safe"));
}

void Application::changed() {
  report_.set({.ready = delegate_.isAppReady,
               .recording = delegate_.isRecording(),
               .active = manager_->activeRequestCount(),
               .statusLine = mainWindow_.status().text,
               .services = readiness_.services()});
  if (onChange) onChange();
}

}  // namespace kestrin
