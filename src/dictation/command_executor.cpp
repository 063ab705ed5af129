#include "dictation/command_executor.h"

#include <array>
#include <re2/re2.h>
#include <string_view>

#include "platform/http.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

/// Line actions and the structured action that has the same effect, with the parameter that takes
/// the target.
struct LineAction {
  std::string_view word;
  const char* type;
  const char* parameter;
};
constexpr std::array<LineAction, 13> lineActions{{
    {"OPEN_APP", "open_app", "app_name"},
    {"OPEN_FOLDER", "open_folder", "path"},
    {"OPEN_URL", "open_url", "url"},
    {"SCREENSHOT", "screenshot", ""},
    {"DARK_MODE_ON", "dark_mode_on", ""},
    {"DARK_MODE_OFF", "dark_mode_off", ""},
    {"VOLUME_UP", "volume_up", ""},
    {"VOLUME_DOWN", "volume_down", ""},
    {"MUTE", "mute", ""},
    {"UNMUTE", "unmute", ""},
    {"BRIGHTNESS_UP", "brightness_up", ""},
    {"BRIGHTNESS_DOWN", "brightness_down", ""},
    {"SLEEP", "sleep", ""},
}};

/// What stands behind "ACTION:" or "TARGET:", up to the end of its line or the next label.
std::optional<std::string> labelled(const std::string& command, const char* label) {
  const auto at = command.find(label);
  if (at == command.npos) return std::nullopt;
  auto rest = command.substr(at + std::char_traits<char>::length(label));
  for (const char* end : {"\n", "TARGET:", "ACTION:"}) {
    if (const auto stop = rest.find(end); stop != rest.npos) rest.resize(stop);
  }
  return text::trim(rest);
}

bool hasScheme(const std::string& target) {
  const auto lower = text::lower(target);
  return lower.starts_with("http://") || lower.starts_with("https://");
}

std::string withoutEndMarks(std::string sentence) {
  sentence = text::trim(sentence);
  while (!sentence.empty() && text::contains(".!?", sentence.substr(sentence.size() - 1))) {
    sentence.pop_back();
  }
  return sentence;
}

}  // namespace

std::vector<Json> parseActionMarkers(const std::string& text) {
  static const RE2 marker(R"re((?i)\[ACTION:(\w+)(?:\s+(.*?))?\])re");
  static const RE2 parameter(R"re((\w+)="([^"]*)")re");
  std::vector<Json> actions;
  const auto valid = text::replaceInvalidUtf8(text);
  re2::StringPiece rest(valid);
  std::string type;
  std::string parameters;
  while (RE2::FindAndConsume(&rest, marker, &type, &parameters)) {
    auto action = Json::object();
    action.set("type", text::lower(type));
    re2::StringPiece inner(parameters);
    std::string key;
    std::string value;
    while (RE2::FindAndConsume(&inner, parameter, &key, &value)) action.set(key, value);
    actions.push_back(std::move(action));
  }
  return actions;
}

bool CommandExecutor::execute(const std::string& command,
                              const std::optional<std::string>& commandType) {
  auto word = labelled(command, "ACTION:");
  const auto target = labelled(command, "TARGET:");
  if (!word && target) word = commandType;
  if (!word) return executeNaturalCommand(command);
  const auto wanted = text::upper(*word);
  for (const auto& row : lineActions) {
    if (row.word != wanted) continue;
    auto action = Json::object({{"type", row.type}});
    if (*row.parameter) {
      auto value = target.value_or("");
      if (wanted == "OPEN_URL" && !hasScheme(value)) value = "https://" + value;
      action.set(row.parameter, value);
    }
    return actions_.execute(action);
  }
  return false;
}

bool CommandExecutor::executeNaturalCommand(const std::string& command) {
  const auto sentence = text::lower(text::trim(command));
  for (const std::string_view verb : {"open ", "launch ", "start "}) {
    if (!sentence.starts_with(verb)) continue;
    const auto name = withoutEndMarks(sentence.substr(verb.size()));
    return !name.empty() &&
           actions_.execute(Json::object({{"type", "open_app"}, {"app_name", name}}));
  }
  const auto run = [&](const char* type) {
    return actions_.execute(Json::object({{"type", type}}));
  };
  if (text::contains(sentence, "screensh")) return run("screenshot");
  if (text::contains(sentence, "dark mod") && text::contains(sentence, "enable")) {
    return run("dark_mode_on");
  }
  if (text::contains(sentence, "unmute")) return run("unmute");
  if (text::contains(sentence, "mute")) return run("mute");
  return false;
}

}  // namespace kestrin
