#pragma once

#include <string>

namespace kestrin {

/// The text as it may be pasted into a terminal: blanks for control characters. A line end or an
/// escape sequence may start what stands on the command line; that is the user's to do.
std::string textForTerminal(const std::string& text);

}  // namespace kestrin
