#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin {

/// What the words behind a command say.
struct ParsedFlags {
  bool verbose = false;
  bool json = false;
  std::optional<int> limit;  ///< as it was given
  bool all = false;
  bool exporting = false;
  std::optional<std::string> filter;
  bool tail = false;
  bool follow = false;
  bool raw = false;
  std::vector<std::string> positionalArgs;

  static constexpr int usualLimit = 10;
  int limitOr(int usual = usualLimit) const { return limit.value_or(usual); }
  /// Empty when there is none.
  std::string positional(size_t index) const {
    return index < positionalArgs.size() ? positionalArgs[index] : std::string();
  }
};

ParsedFlags parseFlags(const std::vector<std::string>& tokens);

}  // namespace kestrin
