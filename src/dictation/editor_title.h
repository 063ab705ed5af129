#pragma once

#include <optional>
#include <string>

namespace kestrin {

/// What a code editor's window title tells.
struct EditorTitle {
  std::string fileName;               ///< empty when the title names none
  std::optional<std::string> folder;  ///< the project's folder, a single path component
};

/// Reads "main.cpp — project — Editor", and the forms of the Linux editors: " - " or " – " between
/// the parts, the project first in some, marks of unsaved changes, a path instead of a name.
/// `appLower` is the application's name in lower case.
EditorTitle parseEditorTitle(const std::string& title, const std::string& appLower);

/// The first part of a document's title, trimmed.
std::string documentName(const std::string& title);

}  // namespace kestrin
