// Scores the agent that works without a language model on spoken sentences: is the mode right, is
// the text right. Prints every miss and the two shares.
#include <fstream>
#include <iostream>
#include <vector>

#include "companion/agent/mode_detection.h"
#include "companion/agent/shapes.h"
#include "platform/text/text.h"

using namespace kestrin;

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : KESTRIN_SOURCE_DIR "/bench/agent_sentences.tsv";
  std::ifstream file(path);
  if (!file) {
    std::cerr << "cannot read " << path << "\n";
    return 1;
  }
  int count = 0;
  int modes = 0;
  int texts = 0;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    const auto fields = text::split(line, "\t");
    if (fields.size() != 4) continue;
    agent::AppContext app;
    app.appName = fields[0];
    app.kind = agent::appKind(fields[0], "");
    const auto detection = agent::detectMode(fields[1], app);
    const std::string said = agent::shape(detection, {"Sam Reed"});
    const std::string wanted = text::replaceAll(fields[3], "\\n", "\n");
    ++count;
    modes += detection.mode == fields[2];
    texts += said == wanted;
    if (detection.mode != fields[2] || said != wanted) {
      std::cout << "MISS  " << fields[1] << "\n  wanted " << fields[2] << ": " << fields[3]
                << "\n  got    " << detection.mode << ": " << text::replaceAll(said, "\n", "\\n")
                << "\n";
    }
  }
  std::cout << count << " sentences: mode right " << 100.0 * modes / count << " %, text right "
            << 100.0 * texts / count << " %\n";
  return count > 0 ? 0 : 1;
}
