#pragma once

#include <functional>
#include <string>

#include "diagnostics/logger.h"
#include "liveassist/session_records.h"
#include "usermodel/user_preferences.h"

namespace kestrin {

/// The window in which the prompt of each use case is edited. Main queue only.
class LiveAssistPromptEditor {
 public:
  static constexpr const char* title = "Edit Live Assist Prompt";
  static constexpr const char* saveTitle = "Save";
  static constexpr const char* resetTitle = "Reset to Default";
  static constexpr const char* cancelTitle = "Cancel";

  LiveAssistPromptEditor(UserPreferences& preferences, Logger& logger)
      : preferences_(preferences), logger_(logger) {}

  void open(LALiveAssistUseCase mode);
  /// Shows the other mode's text; what was typed is dropped.
  void chooseMode(LALiveAssistUseCase mode);
  void edit(const std::string& text) { text_ = text; }
  /// Stores the text and closes; `onSaved` makes the mode the active one.
  void save();
  /// The built-in text comes back, also in what is stored.
  void resetToDefault();
  void cancel();

  bool isOpen() const { return isOpen_; }
  LALiveAssistUseCase mode() const { return mode_; }
  const std::string& text() const { return text_; }
  /// "This prompt guides the AI assistant during Meetings. ..."
  std::string explanation() const;

  std::function<void()> onChange;
  std::function<void(LALiveAssistUseCase)> onSaved;

 private:
  void changed() {
    if (onChange) onChange();
  }

  UserPreferences& preferences_;
  Logger& logger_;
  bool isOpen_ = false;
  LALiveAssistUseCase mode_ = LALiveAssistUseCase::salesCall;
  std::string text_;
};

}  // namespace kestrin
