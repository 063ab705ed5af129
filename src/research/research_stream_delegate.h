#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dictation/utf8_deliveries.h"
#include "platform/json/json.h"
#include "platform/result.h"
#include "research/research_records.h"

namespace kestrin {

/// Reads one research stream: each line `data: {...}` is an event, handled when its line feed is
/// there. Keeps the latest answer and sources. Not thread-safe: the session's serial queue calls
/// it, and the callbacks run there.
class ResearchStreamDelegate {
 public:
  /// No sane agent sends a longer line; a stream that does has failed.
  static constexpr size_t maxLineBytes = 16u << 20;

  using OnEvent = std::function<void(const Json& event)>;
  using OnComplete =
      std::function<void(const std::string& summary, const std::vector<ResearchSource>& sources)>;
  using OnError = std::function<void(const std::string& text)>;

  /// `onEvent` for each event that is a JSON object; then one of the other two, or neither where
  /// the stream was cancelled. Each may be empty.
  ResearchStreamDelegate(OnEvent onEvent, OnComplete onComplete, OnError onError);

  /// False when the stream can go no further; `didComplete` tells the reason.
  bool didReceive(std::string_view bytes);
  /// Once, last.
  void didComplete(const std::optional<Error>& error);

 private:
  void processEvent(std::string_view text);

  std::string buffer_;  ///< what does not yet form a full line
  size_t searched_ = 0;
  Utf8Deliveries deliveries_;
  bool overflowed_ = false;
  std::string lastSummary_;
  std::vector<ResearchSource> lastSources_;
  const OnEvent onEvent_;
  const OnComplete onComplete_;
  const OnError onError_;
};

}  // namespace kestrin
