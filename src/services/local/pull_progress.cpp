#include "services/local/pull_progress.h"

namespace kestrin {
namespace {

bool isLayer(const std::string& id) {
  return id.size() >= 4 && id.find_first_not_of("0123456789abcdef") == std::string::npos;
}

}  // namespace

bool PullProgress::take(const std::string& line) {
  const size_t colon = line.find(": ");
  if (colon == std::string::npos || !isLayer(line.substr(0, colon))) return false;
  const std::string state = line.substr(colon + 2);
  const bool complete = state == "Pull complete" || state == "Already exists";
  const auto [layer, isNew] = complete_.try_emplace(line.substr(0, colon), false);
  const bool finished = complete && !layer->second;
  if (finished) {
    layer->second = true;
    ++done_;
  }
  return isNew || finished;
}

}  // namespace kestrin
