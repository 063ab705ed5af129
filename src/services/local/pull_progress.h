#pragma once

#include <map>
#include <string>

namespace kestrin {

/// Counts the layers of a pull from the lines that the tool prints where it has no terminal
/// ("c3a1: Pulling fs layer", "c3a1: Pull complete").
class PullProgress {
 public:
  /// True when the counts changed.
  bool take(const std::string& line);
  int done() const { return done_; }
  int total() const { return static_cast<int>(complete_.size()); }

 private:
  std::map<std::string, bool> complete_;
  int done_ = 0;
};

}  // namespace kestrin
