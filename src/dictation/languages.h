#pragma once

#include <string_view>

namespace kestrin {

enum class FileType {
  swift,
  typescript,
  javascript,
  python,
  json,
  markdown,
  css,
  html,
  yaml,
  other,
};

/// By a file name's extension (without the dot), in any case.
FileType fileTypeFromExtension(std::string_view extension);

/// What people call the language of a file ("cpp": "C++"); empty when it is not known. Any case.
std::string_view languageFromExtension(std::string_view extension);

/// The part behind the last dot of a file name or path; empty when there is none or when the name
/// only begins with a dot.
std::string_view pathExtension(std::string_view path);

}  // namespace kestrin
