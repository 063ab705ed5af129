#pragma once

#include <string>
#include <vector>

#include "platform/result.h"

namespace kestrin {

/// Screen coordinates in pixels, origin top left.
struct Point {
  int x = 0;
  int y = 0;
  bool operator==(const Point&) const = default;
};

/// Keys and pointer as if the user had used them. Modifiers the user holds are released before a
/// chord and put back after it. Blocking (some tens of milliseconds); call off the main queue.
/// Errors: domain "SyntheticInput".
class SyntheticInput {
 public:
  virtual ~SyntheticInput() = default;
  /// `key`: a key name ("v", "Return", "F5", "Left"); `modifiers`: "control", "shift", "alt",
  /// "super". Key down, `hold` (default 15 ms), key up. Never changes the keyboard layout; a key
  /// that the layout does not have is an error.
  virtual Status chord(const std::vector<std::string>& modifiers, const std::string& key) = 0;
  virtual Result<Point> pointer() = 0;
  virtual Status movePointer(Point to) = 0;
  virtual Status buttonDown(int button) = 0;
  virtual Status buttonUp(int button) = 0;
};

}  // namespace kestrin
