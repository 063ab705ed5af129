#include "dictation/action_executor.h"

#include <algorithm>
#include <array>
#include <optional>
#include <re2/re2.h>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr int volumeStep = 10;
/// One press of a brightness key, in percent.
constexpr int brightnessStep = 6;
constexpr std::chrono::seconds scriptTimeout{60};
/// A script that a notification cannot show whole cannot be approved either.
constexpr size_t maxScriptCharacters = 400;
constexpr size_t maxScriptLines = 10;

bool isControlOrBlank(unsigned char c) { return c <= ' ' || c == 0x7f; }

/// Existing paths and other schemes (file, javascript, an application's own) would open whatever
/// the desktop ties to them. A letter may be begun, but without the file that some mail programs
/// attach on a link's word.
bool isOpenableAddress(const std::string& url) {
  if (isHttpUrl(url)) return true;
  const auto lower = text::lower(url);
  return lower.starts_with("mailto:") && !text::contains(lower, "attach") &&
         std::none_of(url.begin(), url.end(), isControlOrBlank);
}

/// What a reader would not see of a script, or in another order than it stands.
bool hasHiddenCharacters(const std::string& script) {
  static const RE2 hidden(
      R"re([\x00-\x08\x0b-\x1f\x7f]|\p{Cf}|[\x{80}-\x{9f}\x{2028}\x{2029}]| {20})re");
  return text::replaceInvalidUtf8(script) != script || RE2::PartialMatch(script, hidden);
}

}  // namespace

/// The effects themselves. Lives on in the jobs of the queue.
class ActionExecutor::Effects : public std::enable_shared_from_this<Effects> {
 public:
  Effects(Platform& platform, Logger& logger, ActionHandlers handlers)
      : platform_(platform), logger_(logger), handlers_(std::move(handlers)) {}

  using Job = std::function<void(Effects&)>;
  /// The effect of an action, or nothing when a parameter is missing or of another type.
  std::optional<Job> jobFor(const std::string& type, const Json& action);

  static bool isKnown(const std::string& type);
  static bool isElevated(const std::string& type) {
    return type == "press_key" || type == "run_script";
  }

  void end() { lifetime_.end(); }

 private:
  struct Row;
  static const std::vector<Row>& rows();

  void report(const std::string& what, const Status& status) {
    if (!status) {
      logger_.log("ActionExecutor", LogLevel::error, what + ": " + status.error().description);
    }
  }
  void openApp(const std::string& name);
  void closeApp(const std::string& name);
  void openFolder(const std::string& name);
  void adjustVolume(int delta);
  void screenshot();
  void speakText(const std::string& text);
  void askToRunScript(const std::string& script);
  void onMain(std::function<void(ActionHandlers&)> job);

  Platform& platform_;
  Logger& logger_;
  ActionHandlers handlers_;
  Lifetime lifetime_;
};

/// One action type: the parameter that it cannot do without (empty: none) and its effect.
struct ActionExecutor::Effects::Row {
  std::string_view type;
  std::string_view parameter;
  void (*run)(Effects&, const Json& action, const std::string& value);
};

const std::vector<ActionExecutor::Effects::Row>& ActionExecutor::Effects::rows() {
  using E = Effects;
  using S = const std::string&;
  static const std::vector<Row> table{
      {"open_app", "app_name", [](E& e, const Json&, S name) { e.openApp(name); }},
      {"close_app", "app_name", [](E& e, const Json&, S name) { e.closeApp(name); }},
      {"open_folder", "path", [](E& e, const Json&, S path) { e.openFolder(path); }},
      {"open_url", "url",
       [](E& e, const Json&, S url) {
         e.report("open_url",
                  isOpenableAddress(url)
                      ? e.platform_.workspace.open(url)
                      : fail("ActionExecutor", 4, "Only web and mail addresses are opened"));
       }},
      {"type_text", "text",
       [](E& e, const Json&, S text) {
         e.onMain([text](ActionHandlers& handlers) {
           if (handlers.typeText) handlers.typeText(text);
         });
       }},
      {"press_key", "key",
       [](E& e, const Json& action, S key) {
         e.report("press_key",
                  e.platform_.input.chord(modifierNamesFor(action.stringsAt("modifiers")),
                                          keyNameFor(key)));
       }},
      {"run_script", "script", [](E& e, const Json&, S script) { e.askToRunScript(script); }},
      {"clipboard", "text",
       [](E& e, const Json&, S text) {
         e.report("clipboard", e.platform_.pasteboard.setString(text));
       }},
      {"notification", "",
       [](E& e, const Json& action, S) {
         const auto shown = e.platform_.userNotifications.show(
             {.title = action.stringAt("title", "Kestrin"), .body = action.stringAt("body", "")},
             [](const std::string&) {});
         if (!shown) e.report("notification", fail(shown.error()));
       }},
      {"speak", "text", [](E& e, const Json&, S text) { e.speakText(text); }},
      {"volume_up", "", [](E& e, const Json&, S) { e.adjustVolume(volumeStep); }},
      {"volume_down", "", [](E& e, const Json&, S) { e.adjustVolume(-volumeStep); }},
      {"mute", "",
       [](E& e, const Json&, S) { e.report("mute", e.platform_.audio.setOutputMuted(true)); }},
      {"unmute", "",
       [](E& e, const Json&, S) { e.report("unmute", e.platform_.audio.setOutputMuted(false)); }},
      {"dark_mode_on", "",
       [](E& e, const Json&, S) {
         e.report("dark_mode_on", e.platform_.controls.setDarkMode(true));
       }},
      {"dark_mode_off", "",
       [](E& e, const Json&, S) {
         e.report("dark_mode_off", e.platform_.controls.setDarkMode(false));
       }},
      {"screenshot", "", [](E& e, const Json&, S) { e.screenshot(); }},
      {"brightness_up", "",
       [](E& e, const Json&, S) {
         e.report("brightness_up", e.platform_.controls.changeBrightness(brightnessStep));
       }},
      {"brightness_down", "",
       [](E& e, const Json&, S) {
         e.report("brightness_down", e.platform_.controls.changeBrightness(-brightnessStep));
       }},
      {"sleep", "",
       [](E& e, const Json&, S) { e.report("sleep", e.platform_.controls.suspend()); }},
  };
  return table;
}

bool ActionExecutor::Effects::isKnown(const std::string& type) {
  return std::any_of(rows().begin(), rows().end(),
                     [&](const Row& row) { return row.type == type; });
}

std::optional<ActionExecutor::Effects::Job> ActionExecutor::Effects::jobFor(const std::string& type,
                                                                            const Json& action) {
  for (const auto& row : rows()) {
    if (row.type != type) continue;
    std::string value;
    if (!row.parameter.empty()) {
      const auto given = action.stringAt(row.parameter);
      if (!given) return std::nullopt;
      value = *given;
    }
    return [run = row.run, action, value](Effects& effects) { run(effects, action, value); };
  }
  return std::nullopt;
}

void ActionExecutor::Effects::openApp(const std::string& name) {
  Status status;
  for (const auto& candidate : applicationCandidates(name)) {
    status = platform_.workspace.launch(candidate);
    if (status) return;
  }
  report("open_app", status);
}

void ActionExecutor::Effects::closeApp(const std::string& name) {
  Status status;
  for (const auto& candidate : applicationCandidates(name)) {
    status = platform_.workspace.quitApplication(candidate);
    if (status) return;
  }
  report("close_app", status);
}

void ActionExecutor::Effects::openFolder(const std::string& name) {
  auto path = name;
  if (path == "~" || path.starts_with("~/")) path = platform_.files.home() + path.substr(1);
  if (!path.starts_with("/")) path = platform_.files.home() + "/" + path;
  const auto info = platform_.files.info(path);
  // Only folders: a file would be opened, or started, by whatever is tied to it.
  if (!info || !info->isDirectory) {
    return report("open_folder", fail("ActionExecutor", 1, "There is no folder " + path));
  }
  report("open_folder", platform_.workspace.open(path));
}

void ActionExecutor::Effects::adjustVolume(int delta) {
  const auto volume = platform_.audio.outputVolume();
  if (!volume) return report("volume", fail(volume.error()));
  report("volume", platform_.audio.setOutputVolume(std::clamp(*volume + delta, 0, 100)));
}

void ActionExecutor::Effects::screenshot() {
  const auto stamp = dates::format(platform_.dispatch.clock().wallNow(), "yyyyMMdd_HHmmss");
  report("screenshot", platform_.controls.screenshot(platform_.files.desktopFolder() +
                                                     "/screenshot_" + stamp + ".png"));
}

void ActionExecutor::Effects::speakText(const std::string& text) {
  auto spoken = platform_.speech.synthesise(text, {});
  if (!spoken) return report("speak", fail(spoken.error()));
  onMain([wav = std::move(*spoken)](ActionHandlers& handlers) {
    if (handlers.playAudio) handlers.playAudio(wav);
  });
}

/// A script runs only after the user has read it and said so.
void ActionExecutor::Effects::askToRunScript(const std::string& script) {
  if (text::characterCount(script) > maxScriptCharacters ||
      text::split(script, "\n").size() > maxScriptLines) {
    return report("run_script", fail("ActionExecutor", 3, "The script is too long to be shown"));
  }
  if (hasHiddenCharacters(script)) {
    return report("run_script", fail("ActionExecutor", 5, "Part of the script cannot be seen"));
  }
  const auto shown = platform_.userNotifications.show(
      {.title = "Run this script?",
       .body = script,
       .actions = {{"run", "Run"}, {"cancel", "Cancel"}}},
      [weak = weak_from_this(), script](const std::string& action) {
        const auto effects = weak.lock();
        if (!effects || action != "run") return;
        effects->platform_.dispatch.globalQueue()->post([effects, script] {
          const auto ran = effects->platform_.processes.run(
              {.program = "/bin/sh", .arguments = {"-c", script}}, scriptTimeout);
          if (!ran) effects->report("run_script", fail(ran.error()));
        });
      });
  if (!shown) report("run_script", fail(shown.error()));
}

void ActionExecutor::Effects::onMain(std::function<void(ActionHandlers&)> job) {
  platform_.dispatch.mainQueue()->post(
      lifetime_.guard([this, job = std::move(job)] { job(handlers_); }));
}

ActionExecutor::ActionExecutor(Platform& platform, Logger& logger, ActionHandlers handlers)
    : effects_(std::make_shared<Effects>(platform, logger, std::move(handlers))),
      logger_(logger),
      queue_(platform.dispatch.makeQueue("com.kestrin.actions")) {}

ActionExecutor::~ActionExecutor() { effects_->end(); }

bool ActionExecutor::execute(const Json& action) {
  const auto type = action.stringAt("type");
  if (!type) {
    logger_.print("⚠️ ActionExecutor: missing 'type' in action");
    return false;
  }
  logger_.log("ActionExecutor", LogLevel::info, "Executing action: " + *type);
  if (!Effects::isKnown(*type)) {
    logger_.log("ActionExecutor", LogLevel::warning, "Unknown action type: " + *type);
    return false;
  }
  if (Effects::isElevated(*type) && currentTier != SafetyTier::elevated) {
    logger_.log("ActionExecutor", LogLevel::warning, *type + " blocked — elevated tier required");
    return false;
  }
  auto job = effects_->jobFor(*type, action);
  if (!job) return false;
  queue_->post([effects = effects_, job = std::move(*job)] { job(*effects); });
  return true;
}

}  // namespace kestrin
