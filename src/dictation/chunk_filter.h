#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace kestrin {

/// The first filter of a stream's text: takes out a model's stop tokens and invisible characters,
/// and ends the text at a divider or a device's footer. Looks at one chunk at a time. One object a
/// stream; not thread-safe.
class ChunkFilter {
 public:
  /// What remains of the chunk; empty when nothing does, and for everything after the end of the
  /// text.
  std::string accept(std::string_view chunk);
  bool suppressed() const { return suppressed_; }

 private:
  bool suppressed_ = false;
};

/// Where the second filter ends a text, and the line that it logs there.
struct StopMarker {
  size_t position = 0;
  std::string_view logLine;
};

/// The first stop marker of the second filter in the chunk, in its order of search.
std::optional<StopMarker> findStopMarker(std::string_view chunk);

}  // namespace kestrin
