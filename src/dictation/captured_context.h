#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/dates/dates.h"
#include "platform/json/json.h"

namespace kestrin {

/// One recently used file of the user.
struct LocalFileContext {
  std::string filePath;
  std::string fileName;
  std::string fileType;
  std::optional<Date> lastModified;
  std::optional<std::string> contentSnippet;

  Json toJson() const;
};

/// What the user was looking at when the hold key went down. Every field is best effort: what could
/// not be read holds its default.
struct CapturedContext {
  std::string appName;
  std::string windowTitle;
  std::string browserURL;
  std::string browserTabTitle;
  bool hasActiveTextInput = false;
  std::vector<LocalFileContext> localFiles;
  int audioDurationMs = 0;
  std::optional<std::string> workspacePath;
  std::vector<std::string> workspaceFiles;
  std::string surroundingText;
  std::string selectedText;
  std::string documentContent;
  int cursorPosition = -1;
  std::string activeFileName;
  std::string fileLanguage;
  std::string browserPageContent;

  /// The agent's `app_context`: the first five fields and the duration always, the others only when
  /// they hold something.
  Json toJson() const;
};

}  // namespace kestrin
