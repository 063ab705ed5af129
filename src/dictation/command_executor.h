#pragma once

#include <optional>
#include <string>
#include <vector>

#include "dictation/action_executor.h"
#include "platform/json/json.h"

namespace kestrin {

/// The `[ACTION:type key="value" ...]` markers of a command's text, in order, each as an action for
/// `ActionExecutor`.
std::vector<Json> parseActionMarkers(const std::string& text);

/// Runs a command text without markers: lines "ACTION: OPEN_APP" and "TARGET: ...", or a plain
/// sentence.
class CommandExecutor {
 public:
  explicit CommandExecutor(ActionExecutor& actions) : actions_(actions) {}

  /// True when something was run. `commandType` is taken as the action where the text names none.
  bool execute(const std::string& command, const std::optional<std::string>& commandType);

 private:
  bool executeNaturalCommand(const std::string& command);
  ActionExecutor& actions_;
};

}  // namespace kestrin
