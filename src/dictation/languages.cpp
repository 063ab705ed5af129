#include "dictation/languages.h"

#include <array>
#include <string>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

using Row = std::pair<std::string_view, std::string_view>;
constexpr std::array<Row, 34> languages{{
    {"swift", "Swift"},
    {"py", "Python"},
    {"js", "JavaScript"},
    {"ts", "TypeScript"},
    {"tsx", "TypeScript React"},
    {"jsx", "JavaScript React"},
    {"rs", "Rust"},
    {"go", "Go"},
    {"java", "Java"},
    {"kt", "Kotlin"},
    {"rb", "Ruby"},
    {"php", "PHP"},
    {"c", "C"},
    {"cpp", "C++"},
    {"h", "C/C++ Header"},
    {"cs", "C#"},
    {"html", "HTML"},
    {"css", "CSS"},
    {"scss", "SCSS"},
    {"json", "JSON"},
    {"yaml", "YAML"},
    {"yml", "YAML"},
    {"toml", "TOML"},
    {"md", "Markdown"},
    {"sql", "SQL"},
    {"sh", "Shell"},
    {"bash", "Shell"},
    {"r", "R"},
    {"m", "Objective-C"},
    {"mm", "Objective-C++"},
    {"dart", "Dart"},
    {"lua", "Lua"},
    {"ex", "Elixir"},
    {"exs", "Elixir"},
}};

constexpr std::array<std::pair<std::string_view, FileType>, 15> fileTypes{{
    {"swift", FileType::swift},
    {"ts", FileType::typescript},
    {"tsx", FileType::typescript},
    {"js", FileType::javascript},
    {"jsx", FileType::javascript},
    {"py", FileType::python},
    {"json", FileType::json},
    {"md", FileType::markdown},
    {"css", FileType::css},
    {"scss", FileType::css},
    {"less", FileType::css},
    {"html", FileType::html},
    {"htm", FileType::html},
    {"yaml", FileType::yaml},
    {"yml", FileType::yaml},
}};

template <class Table, class Value>
Value lookUp(const Table& table, std::string_view extension, Value otherwise) {
  const auto wanted = text::lower(extension);
  for (const auto& [key, value] : table) {
    if (key == wanted) return value;
  }
  return otherwise;
}

}  // namespace

FileType fileTypeFromExtension(std::string_view extension) {
  return lookUp(fileTypes, extension, FileType::other);
}

std::string_view languageFromExtension(std::string_view extension) {
  return lookUp(languages, extension, std::string_view{});
}

std::string_view pathExtension(std::string_view path) {
  if (const auto slash = path.rfind('/'); slash != path.npos) path.remove_prefix(slash + 1);
  const auto dot = path.rfind('.');
  return dot == path.npos || dot == 0 ? std::string_view{} : path.substr(dot + 1);
}

}  // namespace kestrin
