#include "platform/linux/wayland_pointer.h"

#include <linux/input-event-codes.h>
#include <wayland-client.h>
#include <wayland-cursor.h>

namespace kestrin::wayland {
namespace {

constexpr int arrowSize = 24;

}  // namespace

struct Pointer::Listeners {
  static Pointer& of(void* data) { return *static_cast<Pointer*>(data); }

  static void capabilities(void* data, wl_seat*, uint32_t which) { of(data).capabilities(which); }
  static constexpr wl_seat_listener seat{.capabilities = capabilities,
                                         .name = [](void*, wl_seat*, const char*) {}};

  static void moved(void* data, wl_pointer*, uint32_t, wl_fixed_t x, wl_fixed_t y) {
    of(data).x_ = wl_fixed_to_double(x);
    of(data).y_ = wl_fixed_to_double(y);
  }
  static void entered(void* data, wl_pointer* pointer, uint32_t serial, wl_surface*, wl_fixed_t x,
                      wl_fixed_t y) {
    moved(data, pointer, 0, x, y);
    of(data).showArrow(serial);
  }
  static void button(void* data, wl_pointer*, uint32_t, uint32_t, uint32_t button, uint32_t state) {
    if (button != BTN_LEFT || state != WL_POINTER_BUTTON_STATE_PRESSED) return;
    of(data).onPress_(of(data).x_, of(data).y_);
  }
  static constexpr wl_pointer_listener pointer{
      .enter = entered,
      .leave = [](void*, wl_pointer*, uint32_t, wl_surface*) {},
      .motion = moved,
      .button = button,
      .axis = [](void*, wl_pointer*, uint32_t, uint32_t, wl_fixed_t) {},
      .frame = [](void*, wl_pointer*) {},
      .axis_source = [](void*, wl_pointer*, uint32_t) {},
      .axis_stop = [](void*, wl_pointer*, uint32_t, uint32_t) {},
      .axis_discrete = [](void*, wl_pointer*, uint32_t, int32_t) {}};

  static void down(void* data, wl_touch*, uint32_t, uint32_t, wl_surface*, int32_t, wl_fixed_t x,
                   wl_fixed_t y) {
    of(data).onPress_(wl_fixed_to_double(x), wl_fixed_to_double(y));
  }
  static constexpr wl_touch_listener touch{
      .down = down,
      .up = [](void*, wl_touch*, uint32_t, uint32_t, int32_t) {},
      .motion = [](void*, wl_touch*, uint32_t, int32_t, wl_fixed_t, wl_fixed_t) {},
      .frame = [](void*, wl_touch*) {},
      .cancel = [](void*, wl_touch*) {}};
};

Pointer::Pointer(Owned<wl_seat> seat, wl_compositor* compositor, wl_shm* shm, Press onPress)
    : seat_(std::move(seat)),
      onPress_(std::move(onPress)),
      theme_(wl_cursor_theme_load(nullptr, arrowSize, shm)),
      arrow_(wl_compositor_create_surface(compositor)) {
  wl_seat_add_listener(seat_.get(), &Listeners::seat, this);
}

void Pointer::capabilities(uint32_t which) {
  if ((which & WL_SEAT_CAPABILITY_POINTER) == 0) {
    pointer_.reset();
  } else if (!pointer_) {
    pointer_.reset(wl_seat_get_pointer(seat_.get()));
    wl_pointer_add_listener(pointer_.get(), &Listeners::pointer, this);
  }
  if ((which & WL_SEAT_CAPABILITY_TOUCH) == 0) {
    touch_.reset();
  } else if (!touch_) {
    touch_.reset(wl_seat_get_touch(seat_.get()));
    wl_touch_add_listener(touch_.get(), &Listeners::touch, this);
  }
}

void Pointer::showArrow(uint32_t serial) {
  const wl_cursor* cursor = theme_ ? wl_cursor_theme_get_cursor(theme_.get(), "left_ptr") : nullptr;
  if (cursor == nullptr || cursor->image_count == 0) return;
  wl_cursor_image* image = cursor->images[0];
  wl_pointer_set_cursor(pointer_.get(), serial, arrow_.get(),
                        static_cast<int32_t>(image->hotspot_x),
                        static_cast<int32_t>(image->hotspot_y));
  wl_surface_attach(arrow_.get(), wl_cursor_image_get_buffer(image), 0, 0);
  wl_surface_damage(arrow_.get(), 0, 0, INT32_MAX, INT32_MAX);
  wl_surface_commit(arrow_.get());
}

}  // namespace kestrin::wayland
