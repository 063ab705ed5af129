#pragma once

#include <string>

namespace CLI {
class App;
}

namespace kestrin::cli {

/// A completion script for bash, from the same tree of subcommands and options that `--help`
/// prints.
std::string bashCompletionOf(const CLI::App& app);

}  // namespace kestrin::cli
