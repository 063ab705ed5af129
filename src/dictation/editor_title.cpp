#include "dictation/editor_title.h"

#include <array>
#include <string_view>
#include <vector>

#include "platform/text/text.h"

namespace kestrin {
namespace {

/// Tried in this order; a title has one of them.
constexpr std::array<std::string_view, 3> separators{" — ", " – ", " - "};

/// Editors that name the project before the file ("kestrin – main.cpp"). All others name the file
/// first and their own name last.
constexpr std::array<std::string_view, 10> projectFirstEditors{
    "intellij", "webstorm", "pycharm", "clion",          "goland",
    "phpstorm", "rubymine", "rider",   "android studio", "zed"};

bool namesProjectFirst(const std::string& appLower) {
  for (const auto editor : projectFirstEditors) {
    if (appLower.find(editor) != appLower.npos) return true;
  }
  return false;
}

std::vector<std::string> titleParts(const std::string& title) {
  for (const auto separator : separators) {
    if (title.find(separator) != title.npos) return text::split(title, separator);
  }
  return {title};
}

/// Without the marks of unsaved changes before and after, a folder in brackets behind, and a path
/// before.
std::string bareFileName(const std::string& part) {
  auto name = text::trim(part);
  for (const std::string_view mark : {"*", "●", "•"}) {
    if (name.starts_with(mark)) name = text::trim(name.substr(mark.size()));
    if (name.ends_with(mark)) name = text::trim(name.substr(0, name.size() - mark.size()));
  }
  for (const std::string_view bracket : {" (", " ["}) {
    if (const auto at = name.find(bracket); at != name.npos) name = text::trim(name.substr(0, at));
  }
  if (const auto slash = name.rfind('/'); slash != name.npos) name = name.substr(slash + 1);
  return name;
}

std::string fileNameIn(const std::string& part) {
  if (text::contains(part, "://") || part.starts_with("www.")) return {};
  const auto name = bareFileName(part);
  return text::contains(name, ".") ? name : std::string{};
}

bool isFolderName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
}

}  // namespace

EditorTitle parseEditorTitle(const std::string& title, const std::string& appLower) {
  const auto parts = titleParts(title);
  const bool projectFirst = namesProjectFirst(appLower);
  EditorTitle result;
  result.fileName = fileNameIn(projectFirst ? parts.back() : parts.front());
  if (parts.size() < 2) return result;
  // "file, project, editor", or "project, editor" when no file is open.
  auto folder =
      text::trim(projectFirst || parts.size() == 2 ? parts.front() : parts[parts.size() - 2]);
  if (isFolderName(folder)) result.folder = std::move(folder);
  return result;
}

std::string documentName(const std::string& title) { return text::trim(titleParts(title).front()); }

}  // namespace kestrin
