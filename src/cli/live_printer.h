#pragma once

#include <string>

#include "liveassist/live_assist_view.h"
#include "platform/json/json.h"

namespace kestrin::cli {

/// Prints a session as it goes: lines of both sides and feedback to standard output, failures to
/// standard error; as JSON, a line an event, if asked for. Main queue only.
class LivePrinter {
 public:
  explicit LivePrinter(bool json) : json_(json) {}

  /// Takes the view's listeners for lines, failures and answers. It must outlive the view.
  void attach(LiveAssistView& view);
  bool hasFailed() const { return hasFailed_; }

 private:
  void line(const LAChatMessage& message);
  void failure(LAAudioChannel channel, const std::string& error);
  void feedback(const Json& answer);

  const bool json_;
  bool hasFailed_ = false;
  Json shown_;
};

/// A line on standard error, with the name of the program.
void tell(const std::string& line);

}  // namespace kestrin::cli
