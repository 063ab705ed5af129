#pragma once

#include <string>

namespace kestrin {

/// What an application is for, by its name and its desktop entry id, both in lower case. The tests
/// are looked at in the order of the declarations.
struct ApplicationName {
  std::string name;
  std::string id;
};

bool isCodeEditor(const ApplicationName& application);
bool isNotesApplication(const ApplicationName& application);
bool isMailApplication(const ApplicationName& application);
bool isDocumentEditor(const ApplicationName& application);
bool isBrowser(const ApplicationName& application);
bool isMessenger(const ApplicationName& application);

/// File managers and desktops: a focused field in one of them is no place for a text.
bool isFileManager(const ApplicationName& application);
/// Programs whose text fields are often missing from the accessibility tree: they count as having
/// one.
bool hidesItsTextInput(const ApplicationName& application);

}  // namespace kestrin
