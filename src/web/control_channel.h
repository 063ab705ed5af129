#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "platform/json/json.h"
#include "platform/linux/descriptor.h"

namespace kestrin::web {

/// The JSON lines between this process and the one that started it. It takes the standard input and
/// output for itself: helper processes of the browser inherit neither, and what they print goes to
/// standard error.
class ControlChannel {
 public:
  ControlChannel();

  int descriptor() const { return in_.get(); }
  /// Waits while the other side does not read. Without effect once it is gone.
  void send(const Json& event);
  /// Reads what is there; false at the end.
  bool receive();
  std::optional<Json> next();
  /// Waits for the command that `wanted` accepts; the others stay for `next`.
  std::optional<Json> await(const std::function<bool(const Json&)>& wanted,
                            std::chrono::milliseconds limit);

 private:
  Descriptor in_, out_;
  std::string pending_;
  std::deque<Json> commands_;
};

}  // namespace kestrin::web
