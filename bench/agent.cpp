// Scores the agent that works without a language model: on spoken sentences (is the mode right, is
// the text right) and on spoken commands (are the actions right, is a sentence left alone). Prints
// every miss and the shares.
#include <fstream>
#include <iostream>
#include <optional>
#include <vector>

#include "companion/agent/commands.h"
#include "companion/agent/mode_detection.h"
#include "companion/agent/shapes.h"
#include "platform/text/text.h"

using namespace kestrin;

namespace {

/// Nothing when the list cannot be read.
std::optional<std::vector<std::vector<std::string>>> rows(const std::string& name, size_t fields) {
  const std::string path = KESTRIN_SOURCE_DIR "/bench/" + name;
  std::ifstream file(path);
  if (!file) {
    std::cerr << "cannot read " << path << "\n";
    return std::nullopt;
  }
  std::vector<std::vector<std::string>> found;
  for (std::string line; std::getline(file, line);) {
    auto row = text::split(line, "\t");
    if (line[0] != '#' && row.size() == fields) found.push_back(std::move(row));
  }
  return found;
}

void miss(const std::string& said, const std::string& wanted, const std::string& got) {
  std::cout << "MISS  " << said << "\n  wanted " << wanted << "\n  got    " << got << "\n";
}

void scoreSentences(const std::vector<std::vector<std::string>>& sentences) {
  int modes = 0, texts = 0;
  for (const auto& row : sentences) {
    agent::AppContext app;
    app.appName = row[0];
    app.kind = agent::appKind(row[0], "");
    const auto detection = agent::detectMode(row[1], app);
    const std::string said = text::replaceAll(agent::shape(detection, {"Sam Reed"}), "\n", "\\n");
    modes += detection.mode == row[2];
    texts += said == row[3];
    if (detection.mode != row[2] || said != row[3])
      miss(row[1], row[2] + ": " + row[3], detection.mode + ": " + said);
  }
  std::cout << sentences.size() << " sentences: mode right "
            << 100.0 * modes / double(sentences.size()) << " %, text right "
            << 100.0 * texts / double(sentences.size()) << " %\n";
}

void scoreCommands(const std::vector<std::vector<std::string>>& commands) {
  int right = 0;
  for (const auto& row : commands) {
    const auto actions = agent::parseCommand(row[0]);
    const std::string got = actions ? agent::markers(*actions) : "-";
    right += got == row[1];
    if (got != row[1]) miss(row[0], row[1], got);
  }
  std::cout << commands.size() << " commands and sentences like them: right "
            << 100.0 * right / double(commands.size()) << " %\n";
}

}  // namespace

int main() {
  const auto sentences = rows("agent_sentences.tsv", 4);
  const auto commands = rows("agent_commands.tsv", 2);
  if (!sentences || !commands) return 1;
  scoreSentences(*sentences);
  scoreCommands(*commands);
  return 0;
}
