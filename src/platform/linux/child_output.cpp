#include "platform/linux/child_output.h"

#include "platform/text/text.h"

namespace kestrin {

std::vector<std::string> LineCutter::take(std::string_view bytes) {
  std::vector<std::string> lines;
  while (!bytes.empty()) {
    const size_t end = bytes.find('\n');
    const size_t room = longestLine - pending_.size();
    if (end == std::string_view::npos && bytes.size() < room) {
      pending_ += bytes;
      break;
    }
    if (end == std::string_view::npos || end > room) {
      pending_ += bytes.substr(0, room);
      bytes.remove_prefix(room);
      // A character that the cut would split goes to the next piece.
      const std::string tail =
          pending_.substr(pending_.size() - text::incompleteUtf8Tail(pending_));
      pending_.resize(pending_.size() - tail.size());
      lines.push_back(text::replaceInvalidUtf8(pending_));
      pending_ = tail;
      continue;
    }
    pending_ += bytes.substr(0, end);
    bytes.remove_prefix(end + 1);
    if (!pending_.empty() && pending_.back() == '\r') pending_.pop_back();
    lines.push_back(text::replaceInvalidUtf8(pending_));
    pending_.clear();
  }
  return lines;
}

std::vector<std::string> LineCutter::rest() {
  if (pending_.empty()) return {};
  const std::string last = text::replaceInvalidUtf8(pending_);
  pending_.clear();
  return {last};
}

}  // namespace kestrin
