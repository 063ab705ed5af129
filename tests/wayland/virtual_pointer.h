#pragma once

#include <memory>

/// A mouse of the compositor's seat, moved by the test over a connection of its own.
class VirtualPointer {
 public:
  VirtualPointer();
  ~VirtualPointer();
  /// Moves to a place on a screen of this size and presses and releases the first button.
  void click(unsigned x, unsigned y, unsigned screenWidth, unsigned screenHeight);

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
};
