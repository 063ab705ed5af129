#pragma once

#include <string>

namespace kestrin::atspi {

/// The launcher of the accessibility bus also writes its address on the root window, for programs
/// that have another session bus than the display's (or none).
/// Empty without a display or the property.
std::string addressOnRootWindow();

}  // namespace kestrin::atspi
