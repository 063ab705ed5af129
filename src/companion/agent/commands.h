#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrin::agent {

/// One effect on the computer, as the application's action executor names it.
struct Action {
  std::string type;
  std::vector<std::pair<std::string, std::string>> parameters;

  /// `[ACTION:open_app app_name="Firefox"]`. Quotes and brackets inside a value are left out, since
  /// the reader has no escape for them.
  std::string marker() const;
};

/// The actions of a spoken command, in order; nothing when any part of the sentence is not a
/// command: a sentence that merely begins like one must be written, not run.
std::optional<std::vector<Action>> parseCommand(std::string_view spoken);

/// All markers, joined by a blank.
std::string markers(const std::vector<Action>& actions);

}  // namespace kestrin::agent
