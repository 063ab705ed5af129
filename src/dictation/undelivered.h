#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "dictation/captured_context.h"
#include "platform/bytes.h"
#include "platform/dates/dates.h"

namespace kestrin {

/// A recording that the recogniser or the agent failed on: it can be sent again.
struct UndeliveredRecording {
  std::string id;
  Date at;
  Bytes pcm;  ///< 16 kHz mono 16-bit
  CapturedContext context;
  std::string reason;
};

/// Text that did not reach its target.
struct UndeliveredText {
  std::string id;
  Date at;
  std::string text;
  std::string appName;
  std::string reason;
};

/// What did not arrive, in memory only and bounded: the last five recordings and ten minutes of
/// sound in all, and the last twenty texts. Thread-safe.
class UndeliveredStore {
 public:
  static constexpr size_t maxRecordings = 5;
  static constexpr size_t maxRecordingBytes = 600u * 32000u;
  static constexpr size_t maxTexts = 20;

  void keepRecording(UndeliveredRecording recording);
  void keepText(UndeliveredText text);

  /// Newest first.
  std::vector<UndeliveredRecording> recordings() const;
  std::vector<UndeliveredText> texts() const;
  /// Takes the newest item of either kind out, whichever is later; the caller keeps it again if
  /// sending it fails.
  std::optional<UndeliveredRecording> takeLatestRecording();
  std::optional<UndeliveredText> takeLatestText();
  bool latestIsText() const;
  bool empty() const;
  void remove(const std::string& id);
  void clear();

  /// Runs after every change, on the thread of the change, outside the lock. Set it before the
  /// first use.
  std::function<void()> onChange;

 private:
  void changed() const;
  mutable std::mutex mutex_;
  std::deque<UndeliveredRecording> recordings_;  ///< oldest first
  std::deque<UndeliveredText> texts_;            ///< oldest first
};

}  // namespace kestrin
