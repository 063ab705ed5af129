#include "cli/line_editor.h"

#include <cstdlib>
#include <cstring>
#include <editline/readline.h>
#include <iostream>
#include <unistd.h>

namespace kestrin::cli {
namespace {

// The library calls back without a context.
std::vector<std::string>& completions() {
  static std::vector<std::string> words;
  return words;
}

char* nextWord(const char* begun, int state) {
  static size_t next = 0;
  if (state == 0) next = 0;
  const auto& words = completions();
  while (next < words.size()) {
    const std::string& word = words[next++];
    if (word.starts_with(begun)) return strdup(word.c_str());
  }
  return nullptr;
}

char** complete(const char* begun, int start, int) {
  rl_attempted_completion_over = 1;
  return start == 0 ? rl_completion_matches(begun, nextWord) : nullptr;
}

}  // namespace

LineEditor::LineEditor(std::string prompt, std::vector<std::string> words)
    : prompt_(std::move(prompt)), interactive_(isatty(STDIN_FILENO) != 0) {
  completions() = std::move(words);
  if (interactive_) rl_attempted_completion_function = complete;
}

std::optional<std::string> LineEditor::read() {
  if (!interactive_) {
    std::string line;
    if (!std::getline(std::cin, line)) return std::nullopt;
    return line;
  }
  char* line = readline(prompt_.c_str());
  if (!line) return std::nullopt;
  std::string read(line);
  std::free(line);
  if (!read.empty()) add_history(read.c_str());
  return read;
}

}  // namespace kestrin::cli
