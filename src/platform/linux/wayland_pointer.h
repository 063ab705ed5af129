#pragma once

#include <cstdint>
#include <functional>

#include "platform/linux/wayland_objects.h"

namespace kestrin::wayland {

/// Presses of the pointer's first button and of fingers on the surfaces of this connection.
class Pointer {
 public:
  using Press = std::function<void(double x, double y)>;
  /// A seat that nobody has heard yet; the compositor and the shared memory outlive it.
  Pointer(Owned<wl_seat> seat, wl_compositor* compositor, wl_shm* shm, Press onPress);
  Pointer(const Pointer&) = delete;
  Pointer& operator=(const Pointer&) = delete;

 private:
  struct Listeners;
  void capabilities(uint32_t which);
  /// Without it the pointer would keep the shape that the window below has given it.
  void showArrow(uint32_t serial);

  Owned<wl_seat> seat_;
  Press onPress_;
  Owned<wl_pointer> pointer_;
  Owned<wl_touch> touch_;
  Owned<wl_cursor_theme> theme_;
  Owned<wl_surface> arrow_;
  double x_ = 0, y_ = 0;
};

}  // namespace kestrin::wayland
