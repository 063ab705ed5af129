#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "companion/agent/commands.h"

namespace kestrin::agent {

/// The type of the command without parameters ("volume up") that the part is; empty when it is
/// none. `plain` is a part's plain form.
std::string fixedCommand(std::string plain);

/// A program, window, folder or address that is to be opened or closed. Names are taken as said.
std::optional<Action> openOrClose(const std::string& plain, std::string_view spoken);

/// The words of `spoken` from the one with index `from` in its plain form on, as said but without
/// the mark at the end.
std::string restAsSaid(std::string_view spoken, size_t from);

size_t wordCount(std::string_view plain);

}  // namespace kestrin::agent
