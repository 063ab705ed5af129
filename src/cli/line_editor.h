#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin::cli {

/// Reads lines from standard input: on a terminal with editing, history (arrow keys) and completion
/// of the first word, elsewhere as they stand. Blocking. One object in a process.
class LineEditor {
 public:
  LineEditor(std::string prompt, std::vector<std::string> words);
  /// Nothing at the end of the input.
  std::optional<std::string> read();

 private:
  const std::string prompt_;
  const bool interactive_;
};

}  // namespace kestrin::cli
