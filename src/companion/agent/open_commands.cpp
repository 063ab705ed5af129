#include <array>
#include <re2/re2.h>

#include "companion/agent/command_kinds.h"
#include "companion/agent/words.h"
#include "platform/text/text.h"

namespace kestrin::agent {
namespace {

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

}  // namespace

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

}  // namespace kestrin::agent
