#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kestrin {

/// Cuts what a child prints into lines of valid UTF-8.
class LineCutter {
 public:
  /// The lines that `bytes` completes, without "\n" or "\r\n".
  std::vector<std::string> take(std::string_view bytes);
  /// What is left at the end without a line end; nothing when there is none.
  std::vector<std::string> rest();

  /// A line longer than this is delivered in pieces, so that a child that never ends its line
  /// cannot fill memory.
  static constexpr size_t longestLine = 1u << 20;

 private:
  std::string pending_;
};

}  // namespace kestrin
