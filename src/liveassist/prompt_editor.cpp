#include "liveassist/prompt_editor.h"

namespace kestrin {
namespace {

constexpr const char* source = "LiveAssist";

}  // namespace

void LiveAssistPromptEditor::open(LALiveAssistUseCase mode) {
  isOpen_ = true;
  chooseMode(mode);
}

void LiveAssistPromptEditor::chooseMode(LALiveAssistUseCase mode) {
  mode_ = mode;
  // The user's own texts lie over the built-in ones.
  const auto prompts = preferences_.liveAssistPrompts();
  const auto found = prompts.find(rawValue(mode));
  text_ = found == prompts.end() ? "" : found->second;
  changed();
}

void LiveAssistPromptEditor::save() {
  auto prompts = preferences_.liveAssistPrompts();
  prompts[rawValue(mode_)] = text_;
  preferences_.setLiveAssistPrompts(prompts);
  isOpen_ = false;
  if (onSaved) onSaved(mode_);
  logger_.log(source, LogLevel::info,
              "Saved custom prompt for " + displayName(mode_) + " and switched active mode");
  changed();
}

void LiveAssistPromptEditor::resetToDefault() {
  auto prompts = preferences_.liveAssistPrompts();
  const auto original = defaultLiveAssistPrompts().find(rawValue(mode_));
  text_ = original == defaultLiveAssistPrompts().end() ? "" : original->second;
  prompts.erase(rawValue(mode_));
  preferences_.setLiveAssistPrompts(prompts);
  logger_.log(source, LogLevel::info, "Reset prompt for " + displayName(mode_) + " to default");
  changed();
}

void LiveAssistPromptEditor::cancel() {
  isOpen_ = false;
  changed();
}

std::string LiveAssistPromptEditor::explanation() const {
  return "This prompt guides the AI assistant during " + displayName(mode_) +
         "s. Customize it to match your needs.";
}

}  // namespace kestrin
