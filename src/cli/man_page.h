#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kestrin::cli {

/// The manual page of a program, from the same descriptions that `--help` prints.
std::string manPageOf(const CLI::App& app, const std::string& version);

}  // namespace kestrin::cli
