#include "platform/linux/evolution_sources.h"

#include <array>
#include <cstdio>
#include <glib.h>
#include <memory>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* sourceGroup = "Data Source";
constexpr const char* calendarGroup = "Calendar";
/// Accounts hang one below another two or three deep; more is a loop.
constexpr int deepest = 10;

using KeyFile = std::unique_ptr<GKeyFile, decltype(&g_key_file_unref)>;

KeyFile parse(const std::string& content) {
  KeyFile file(g_key_file_new(), &g_key_file_unref);
  // Names in every language, of which the user's is chosen when it is asked for.
  if (!g_key_file_load_from_data(file.get(), content.data(), content.size(),
                                 G_KEY_FILE_KEEP_TRANSLATIONS, nullptr))
    return {nullptr, &g_key_file_unref};
  return file;
}

std::string taken(gchar* text) {
  const std::unique_ptr<gchar, decltype(&g_free)> owned(text, &g_free);
  return text ? text : "";
}

std::string textAt(const KeyFile& file, const char* group, const char* key) {
  return taken(g_key_file_get_locale_string(file.get(), group, key, nullptr, nullptr));
}

/// Every switch of a source is on where nothing is said.
bool isOn(const KeyFile& file, const char* group, const char* key) {
  return textAt(file, group, key) != "false";
}

/// "#3584e4" of that or of "rgb(53,132,228)", the other form in which desktops keep a colour.
std::string colorOf(const std::string& words) {
  if (words.size() == 7 && words[0] == '#' &&
      words.find_first_not_of("0123456789abcdefABCDEF", 1) == words.npos)
    return words;
  unsigned red = 0, green = 0, blue = 0;
  const std::string close = text::replaceAll(words, " ", "");
  if (std::sscanf(close.c_str(), "rgb(%3u,%3u,%3u", &red, &green, &blue) != 3 || red > 255 ||
      green > 255 || blue > 255)
    return {};
  std::array<char, 8> out{};
  std::snprintf(out.data(), out.size(), "#%02x%02x%02x", red, green, blue);
  return out.data();
}

}  // namespace

std::map<std::string, EvolutionCalendar> evolutionCalendars(
    const std::map<std::string, std::string>& keyFiles) {
  std::map<std::string, KeyFile> sources;
  for (const auto& [id, content] : keyFiles) {
    if (KeyFile file = parse(content)) sources.emplace(id, std::move(file));
  }
  std::map<std::string, EvolutionCalendar> out;
  for (const auto& [id, file] : sources) {
    if (!g_key_file_has_group(file.get(), calendarGroup)) continue;
    EvolutionCalendar calendar;
    calendar.name = text::replaceInvalidUtf8(textAt(file, sourceGroup, "DisplayName"));
    calendar.color = colorOf(textAt(file, calendarGroup, "Color"));
    calendar.shown = isOn(file, calendarGroup, "Selected") && isOn(file, calendarGroup, "Enabled");
    auto above = sources.find(id);
    for (int depth = 0; depth < deepest && above != sources.end(); ++depth) {
      calendar.shown = calendar.shown && isOn(above->second, sourceGroup, "Enabled");
      above = sources.find(textAt(above->second, sourceGroup, "Parent"));
    }
    out.emplace(id, std::move(calendar));
  }
  return out;
}

}  // namespace kestrin
