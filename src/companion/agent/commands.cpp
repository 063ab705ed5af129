#include "companion/agent/commands.h"

#include <array>
#include <memory>
#include <re2/re2.h>
#include <utility>

#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

/// A command without parameters: the whole part must match, once words of degree are left out of
/// it. SOUND, LIGHT and MACHINE stand for what people call these.
struct FixedCommand {
  const char* pattern;
  const char* type;
};

constexpr std::array fixedCommands{
    FixedCommand{"(?:turn|bring|put) SOUND up|(?:turn|crank) up SOUND|(?:raise|increase) SOUND|"
                 "volume up|make (?:it|SOUND) louder|(?:SOUND )?louder",
                 "volume_up"},
    FixedCommand{"(?:turn|bring|put) SOUND down|turn down SOUND|(?:lower|decrease|reduce) SOUND|"
                 "volume down|make (?:it|SOUND) quieter|(?:SOUND )?quieter|not so loud",
                 "volume_down"},
    FixedCommand{"unmute|unmute (?:SOUND|MACHINE)|turn (?:back )?on SOUND|turn SOUND (?:back )?on|"
                 "sound (?:back )?on",
                 "unmute"},
    FixedCommand{"mute|mute (?:SOUND|MACHINE|everything)|turn off SOUND|turn SOUND off|sound off|"
                 "silence (?:SOUND|MACHINE)",
                 "mute"},
    FixedCommand{"(?:turn on|enable|activate|switch (?:back )?to|switch on|use|go) (?:the )?DARK|"
                 "turn (?:the )?DARK on|dark mode on|(?:turn off|disable) (?:the )?LIGHTMODE|"
                 "make (?:it|everything) dark",
                 "dark_mode_on"},
    FixedCommand{"(?:turn off|disable|deactivate|switch off) (?:the )?DARK|"
                 "turn (?:the )?DARK off|dark mode off|"
                 "(?:turn on|enable|switch (?:back )?to|use|go) (?:the )?LIGHTMODE|"
                 "make (?:it|everything) light",
                 "dark_mode_off"},
    FixedCommand{"(?:take|make|grab|capture) (?:a |the )?SHOT(?: of (?:this|the screen|my "
                 "screen|everything))?|SHOT|capture (?:the|my) screen|"
                 "take a (?:picture|photo) of (?:the|my) screen",
                 "screenshot"},
    FixedCommand{"(?:turn|bring) LIGHT up|(?:turn up|raise|increase) LIGHT|brightness up|"
                 "make (?:it|SCREEN) brighter|(?:SCREEN )?brighter",
                 "brightness_up"},
    FixedCommand{"(?:turn|bring) LIGHT down|(?:turn down|lower|decrease|reduce|dim) LIGHT|"
                 "brightness down|dim SCREEN|make (?:it|SCREEN) (?:darker|dimmer)|"
                 "(?:SCREEN )?(?:darker|dimmer)",
                 "brightness_down"},
    FixedCommand{"go to sleep|sleep now|suspend MACHINE|(?:put|send) MACHINE to sleep", "sleep"},
};

/// The pattern of a fixed command as the library reads it.
std::string expanded(std::string pattern) {
  for (const auto& [name, words] :
       {std::pair{"SOUND",
                  "(?:(?:the |my )?"
                  "(?:volume|sound|audio|music|speakers?)|it)"},
        std::pair{"LIGHTMODE", "light (?:mode|theme)"}, std::pair{"DARK", "dark (?:mode|theme)"},
        std::pair{"LIGHT",
                  "(?:(?:the |my )?(?:screen |display )?"
                  "brightness)"},
        std::pair{"SCREEN", "(?:the |my )?(?:screen|display)"},
        std::pair{"SHOT", "(?:screenshot|screen shot|screen capture)"},
        std::pair{"MACHINE",
                  "(?:the |my |this )?"
                  "(?:computer|laptop|machine|pc)"}}) {
    pattern = text::replaceAll(std::move(pattern), name, words);
  }
  return pattern;
}

/// The type of the fixed command that the part is; empty when it is none.
std::string fixedCommand(std::string plain) {
  static const RE2 degree(
      " ?\\b(?:just )?(?:(?:by )?a (?:little bit|little|bit|notch|touch|lot)|slightly|somewhat)\\b "
      "?");
  static const auto patterns = [] {
    std::vector<std::pair<std::unique_ptr<RE2>, std::string>> all;
    for (const FixedCommand& command : fixedCommands) {
      all.emplace_back(std::make_unique<RE2>(expanded(command.pattern)), command.type);
    }
    return all;
  }();
  RE2::GlobalReplace(&plain, degree, " ");
  plain = text::trim(plain);
  for (const auto& [pattern, type] : patterns) {
    if (RE2::FullMatch(plain, *pattern)) return type;
  }
  return {};
}

/// The user's own folders, as they are called and as the application finds them.
constexpr std::array<std::pair<std::string_view, const char*>, 9> folderNames{{
    {"downloads", "Downloads"},
    {"download", "Downloads"},
    {"documents", "Documents"},
    {"desktop", "Desktop"},
    {"pictures", "Pictures"},
    {"music", "Music"},
    {"videos", "Videos"},
    {"home", "Home"},
    {"public", "Public"},
}};

/// Spoken names of programs that people open; any other single word is tried as well, see
/// `appName`.
constexpr std::array appNames{"firefox",
                              "chrome",
                              "google chrome",
                              "chromium",
                              "brave",
                              "vivaldi",
                              "browser",
                              "web browser",
                              "terminal",
                              "console",
                              "konsole",
                              "files",
                              "file manager",
                              "nautilus",
                              "dolphin",
                              "calculator",
                              "calendar",
                              "settings",
                              "system settings",
                              "control center",
                              "mail",
                              "thunderbird",
                              "evolution",
                              "geary",
                              "text editor",
                              "mousepad",
                              "gedit",
                              "kate",
                              "writer",
                              "libreoffice",
                              "libreoffice writer",
                              "libreoffice calc",
                              "calc",
                              "impress",
                              "gimp",
                              "inkscape",
                              "blender",
                              "krita",
                              "vlc",
                              "music",
                              "rhythmbox",
                              "spotify",
                              "videos",
                              "photos",
                              "camera",
                              "cheese",
                              "clocks",
                              "clock",
                              "maps",
                              "weather",
                              "contacts",
                              "notes",
                              "obsidian",
                              "joplin",
                              "slack",
                              "discord",
                              "telegram",
                              "signal",
                              "whatsapp",
                              "element",
                              "teams",
                              "zoom",
                              "skype",
                              "steam",
                              "code",
                              "vs code",
                              "visual studio code",
                              "vscode",
                              "vscodium",
                              "software",
                              "app store",
                              "system monitor",
                              "task manager",
                              "disks",
                              "screenshot tool",
                              "emacs",
                              "vim",
                              "document viewer",
                              "image viewer"};

/// Single words that follow "open" or "start" in ordinary sentences.
constexpr std::string_view notAnApp =
    "up it this that questions question minded door doors source air fire now today tomorrow again "
    "here there with by "
    "the a an in on at issues house access hours office space letter wide windows window mic "
    "enrollment position "
    "positions discussion seats water";

bool isKnownApp(const std::string& name) {
  for (const char* known : appNames) {
    if (name == known) return true;
  }
  return false;
}

/// The words of `spoken` from the one with index `from` in its plain form on, as said but without
/// the mark at the end.
std::string restAsSaid(std::string_view spoken, size_t from) {
  auto words = splitWords(spoken);
  std::erase_if(words, [](const Word& word) { return word.core.empty(); });
  if (from >= words.size()) return {};
  words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(from));
  words.back().tail.clear();
  return joinWords(words);
}

size_t wordCount(std::string_view plain) { return splitWords(plain).size(); }

/// "example dot com slash news" to "example.com/news"; empty when it is no address.
std::string spokenAddress(std::string text) {
  static const RE2 dots(" ?\\bdot\\b ?");
  static const RE2 slashes(" ?\\b(?:forward )?slash\\b ?");
  static const RE2 dashes(" ?\\b(?:dash|hyphen)\\b ?");
  static const RE2 address(
      "(?:https?://)?[a-z0-9-]+(?:\\.[a-z0-9-]+)*\\.[a-z]{2,}(?:/[^\\s\"\\]]*)?");
  RE2::GlobalReplace(&text, dots, ".");
  RE2::GlobalReplace(&text, slashes, "/");
  RE2::GlobalReplace(&text, dashes, "-");
  if (!RE2::FullMatch(text, address)) return {};
  return text.find("://") == std::string::npos ? "https://" + text : text;
}

/// The folder that is meant; null when it is none. "Music" and "home" are more often other things,
/// so that they need the word, or whose they are.
const char* folderNamed(std::string name, const std::string& article) {
  constexpr std::string_view suffix = " folder";
  const bool said = name.ends_with(suffix);
  if (said) name.resize(name.size() - suffix.size());
  for (const auto& [spoken, folder] : folderNames) {
    if (name != spoken) continue;
    const bool clear = said || isOneOf(name, "downloads documents") ||
                       (article == "my " && isOneOf(name, "pictures videos desktop"));
    return clear ? folder : nullptr;
  }
  return nullptr;
}

std::optional<Action> openOrClose(const std::string& plain, std::string_view spoken) {
  static const RE2 pattern(
      "(open up|open|launch|start|run|bring up|fire up|close|quit|exit|shut down|go to|visit|"
      "navigate to|browse to|switch to|show me|show|take me to|pull up) "
      "(the |my )?(website |site |page )?(.+?)( app| application| program| window)?");
  std::string verb;
  std::string article;
  std::string site;
  std::string name;
  std::string suffix;
  if (!RE2::FullMatch(plain, pattern, &verb, &article, &site, &name, &suffix)) return std::nullopt;
  const bool closes = isOneOf(verb, "close quit exit") || verb == "shut down";
  if (!closes) {
    static const RE2 inBrowser(" in (?:the |my |a )?(?:web )?browser");
    std::string place = name;
    RE2::Replace(&place, inBrowser, "");
    if (const std::string url = spokenAddress(place); !url.empty())
      return Action{"open_url", {{"url", url}}};
    if (const char* folder = folderNamed(name, article))
      return Action{"open_folder", {{"path", folder}}};
  }
  if (isOneOf(verb, "visit show") || verb == "navigate to" || verb == "browse to" ||
      verb == "show me" || verb == "take me to") {
    return std::nullopt;
  }
  const bool said = !suffix.empty() || isKnownApp(name);
  const bool oneWord = isOneOf(verb, "open launch") && article.empty() && wordCount(name) == 1 &&
                       !isOneOf(name, notAnApp) && wordCount(plain) == 2;
  if (!said && !oneWord) return std::nullopt;
  if (wordCount(name) > 4) return std::nullopt;
  const size_t skip = wordCount(verb) + wordCount(article) + wordCount(site);
  std::string asSaid = restAsSaid(spoken, skip);
  if (!suffix.empty()) asSaid = text::trim(asSaid.substr(0, asSaid.size() - suffix.size()));
  return Action{closes ? "close_app" : "open_app", {{"app_name", asSaid}}};
}

std::optional<Action> pressKey(const std::string& plain) {
  static const RE2 pattern(
      "(?:press|hit) (?:the )?((?:(?:control|ctrl|shift|alt|option|command|super)(?: plus| and)? "
      ")*)(.+?)(?: key)?");
  std::string modifiers;
  std::string key;
  if (!RE2::FullMatch(plain, pattern, &modifiers, &key)) return std::nullopt;
  static const RE2 keyName(
      "[a-z0-9]|f[0-9]{1,2}|enter|return|escape|tab|space|backspace|delete|home|end|page up|page "
      "down|up|down|left|right");
  if (!RE2::FullMatch(key, keyName)) return std::nullopt;
  std::string joined;
  for (const Word& word : splitWords(modifiers)) {
    if (isOneOf(word.key, "plus and")) continue;
    if (!joined.empty()) joined += ',';
    joined += word.key == "ctrl" ? "control" : word.key;
  }
  Action action{"press_key", {{"key", key}}};
  if (!joined.empty()) action.parameters.emplace_back("modifiers", joined);
  return action;
}

/// Commands that carry the user's own words.
struct WordsCommand {
  const char* pattern;  ///< one group: what goes before the words, so that they are taken as said
  const char* type;
  const char* parameter;
};

constexpr std::array wordsCommands{
    WordsCommand{"((?:type out|type in|type the (?:text|words)) ).+", "type_text", "text"},
    WordsCommand{"((?:say out loud|read aloud|read out|speak out loud) ).+", "speak", "text"},
    WordsCommand{"((?:show|send|give) (?:me )?a notification (?:saying|that says|that) ).+",
                 "notification", "body"},
    WordsCommand{"(put (?:this )?on (?:the|my) clipboard ).+", "clipboard", "text"},
};

std::optional<Action> withWords(const std::string& plain, std::string_view spoken) {
  for (const WordsCommand& command : wordsCommands) {
    std::string before;
    if (RE2::FullMatch(plain, command.pattern, &before)) {
      return Action{command.type, {{command.parameter, restAsSaid(spoken, wordCount(before))}}};
    }
  }
  static const RE2 copy("((?:copy|put) )(.+)( (?:to|on) (?:the|my) clipboard)");
  std::string before;
  std::string words;
  std::string after;
  if (RE2::FullMatch(plain, copy, &before, &words, &after)) {
    auto said = splitWords(restAsSaid(spoken, wordCount(before)));
    said.resize(said.size() - wordCount(after));
    if (!said.empty()) said.back().tail.clear();
    return Action{"clipboard", {{"text", joinWords(said)}}};
  }
  return std::nullopt;
}

std::optional<Action> parseOne(std::string_view spoken) {
  const std::string plain = plainForm(spoken);
  if (auto type = fixedCommand(plain); !type.empty()) return Action{std::move(type), {}};
  if (auto action = withWords(plain, spoken)) return action;
  if (auto action = pressKey(plain)) return action;
  return openOrClose(plain, spoken);
}

/// Without the words that politeness or calling the assistant by name put round a command.
std::string withoutAddress(std::string_view spoken) {
  auto words = splitWords(spoken);
  const auto drop = [&](std::initializer_list<const char*> phrase) {
    if (words.size() <= phrase.size()) return false;
    size_t i = 0;
    for (const char* word : phrase) {
      if (words[i++].key != word) return false;
    }
    words.erase(words.begin(), words.begin() + static_cast<ptrdiff_t>(phrase.size()));
    return true;
  };
  while (drop({"hey", "kestrin"}) || drop({"okay", "kestrin"}) || drop({"kestrin"}) ||
         drop({"please"}) || drop({"can", "you", "please"}) || drop({"can", "you"}) ||
         drop({"could", "you", "please"}) || drop({"could", "you"}) || drop({"would", "you"}) ||
         drop({"i", "want", "you", "to"}) || drop({"i'd", "like", "you", "to"}) ||
         drop({"let's"})) {
  }
  while (words.size() > 1 && isOneOf(words.back().key, "please now kestrin")) {
    if (words.back().key == "now" && words.size() == 2) break;
    words.pop_back();
  }
  if (words.size() > 3 && words.back().key == "me" && words[words.size() - 2].key == "for") {
    words.resize(words.size() - 2);
  }
  return joinWords(words);
}

/// Cuts at " and ", " then ", commas and sentence ends, longest parts first, so that "copy bread
/// and butter to the clipboard" stays one command.
std::optional<std::vector<Action>> parseParts(const std::vector<Word>& words) {
  if (words.empty()) return std::vector<Action>{};
  if (auto whole = parseOne(joinWords(words))) return std::vector<Action>{*whole};
  for (size_t cut = words.size() - 1; cut >= 1; --cut) {
    const bool joins = isOneOf(words[cut].key, "and then");
    const bool marks = words[cut - 1].tail.find_first_of(",.;!?") != std::string::npos;
    if (!joins && !marks) continue;
    std::vector<Word> head(words.begin(), words.begin() + static_cast<ptrdiff_t>(cut));
    auto first = parseOne(joinWords(head));
    if (!first) continue;
    size_t next = cut;
    while (next < words.size() && isOneOf(words[next].key, "and then also please")) ++next;
    auto rest = parseParts({words.begin() + static_cast<ptrdiff_t>(next), words.end()});
    if (!rest || (next == words.size() && next != cut)) continue;
    rest->insert(rest->begin(), *first);
    return rest;
  }
  return std::nullopt;
}

std::string safeValue(std::string_view value) {
  std::string out;
  for (const char c : value) {
    if (c != '"' && c != ']' && c != '[' && c != '\n') out += c;
  }
  return text::trim(out);
}

}  // namespace

std::string Action::marker() const {
  std::string out = "[ACTION:" + type;
  for (const auto& [name, value] : parameters) out += " " + name + "=\"" + safeValue(value) + "\"";
  return out + "]";
}

std::optional<std::vector<Action>> parseCommand(std::string_view spoken) {
  // Nobody says a command of this length; it keeps the search for cuts small.
  constexpr size_t maxWords = 40;
  const auto words = splitWords(withoutAddress(spoken));
  if (words.empty() || words.size() > maxWords) return std::nullopt;
  return parseParts(words);
}

std::string markers(const std::vector<Action>& actions) {
  std::string out;
  for (const Action& action : actions) {
    if (!out.empty()) out += ' ';
    out += action.marker();
  }
  return out;
}

}  // namespace kestrin::agent
