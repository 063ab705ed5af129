#include "dictation/captured_context.h"

namespace kestrin {

Json LocalFileContext::toJson() const {
  Json out = Json::object({{"path", filePath}, {"name", fileName}, {"type", fileType}});
  if (lastModified) out.set("last_modified", dates::iso8601(*lastModified));
  if (contentSnippet) out.set("snippet", *contentSnippet);
  return out;
}

Json CapturedContext::toJson() const {
  Json out = Json::object({{"app_name", appName},
                           {"window_title", windowTitle},
                           {"browser_url", browserURL},
                           {"browser_tab_title", browserTabTitle},
                           {"has_active_text_input", hasActiveTextInput}});
  const auto setText = [&](const char* key, const std::string& value) {
    if (!value.empty()) out.set(key, value);
  };
  if (!localFiles.empty()) {
    Json files = Json::array();
    for (const LocalFileContext& file : localFiles) files.push(file.toJson());
    out.set("local_files", std::move(files));
  }
  out.set("audio_duration_ms", audioDurationMs);
  if (workspacePath) out.set("workspace_path", *workspacePath);
  if (!workspaceFiles.empty()) out.set("workspace_files", Json::arrayOf(workspaceFiles));
  setText("surrounding_text", surroundingText);
  setText("selected_text", selectedText);
  setText("document_content", documentContent);
  if (cursorPosition >= 0) out.set("cursor_position", cursorPosition);
  setText("active_file_name", activeFileName);
  setText("file_language", fileLanguage);
  setText("browser_page_content", browserPageContent);
  return out;
}

}  // namespace kestrin
