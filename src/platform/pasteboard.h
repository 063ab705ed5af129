#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/result.h"

namespace kestrin {

/// The clipboard. What we put there is served by a thread of our own, so other programs can read it
/// while the main queue is busy, and stays until somebody else owns the clipboard. Blocking calls
/// have a deadline of 1 s; call off the main queue. Thread-safe. Errors: domain "Pasteboard".
class Pasteboard {
 public:
  virtual ~Pasteboard() = default;
  /// Nothing when it is empty or holds no text.
  virtual std::optional<std::string> string() = 0;
  virtual Status setString(const std::string& text) = 0;
  virtual Status clear() = 0;
  /// How many times another program has fetched what the last `setString` put there.
  virtual int fetches() = 0;
  /// Waits until `fetches()` is above `seen`; false at the time-out.
  virtual bool waitForFetch(int seen, Duration timeout) = 0;
  /// Whether the clipboard still holds what we put there.
  virtual bool isOwner() = 0;
};

}  // namespace kestrin
