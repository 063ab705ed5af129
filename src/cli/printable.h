#pragma once

#include <string>

namespace kestrin::cli {

/// The text without control characters but line feeds and tabs: what comes from the network must
/// not move the cursor or recolour the terminal.
std::string printable(const std::string& text);

}  // namespace kestrin::cli
