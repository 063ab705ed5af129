#include "platform/linux/wayland_objects.h"

#include <layer-shell-client-protocol.h>
#include <wayland-client.h>
#include <wayland-cursor.h>

namespace kestrin::wayland {

void Destroy::operator()(wl_buffer* object) const { wl_buffer_destroy(object); }
void Destroy::operator()(wl_callback* object) const { wl_callback_destroy(object); }
void Destroy::operator()(wl_compositor* object) const { wl_compositor_destroy(object); }
void Destroy::operator()(wl_cursor_theme* object) const { wl_cursor_theme_destroy(object); }
void Destroy::operator()(wl_display* object) const { wl_display_disconnect(object); }
void Destroy::operator()(wl_output* object) const { wl_output_destroy(object); }
void Destroy::operator()(wl_pointer* object) const { wl_pointer_destroy(object); }
void Destroy::operator()(wl_registry* object) const { wl_registry_destroy(object); }
void Destroy::operator()(wl_seat* object) const { wl_seat_destroy(object); }
void Destroy::operator()(wl_shm* object) const { wl_shm_destroy(object); }
void Destroy::operator()(wl_shm_pool* object) const { wl_shm_pool_destroy(object); }
void Destroy::operator()(wl_surface* object) const { wl_surface_destroy(object); }
void Destroy::operator()(wl_touch* object) const { wl_touch_destroy(object); }
void Destroy::operator()(zwlr_layer_shell_v1* object) const { zwlr_layer_shell_v1_destroy(object); }
void Destroy::operator()(zwlr_layer_surface_v1* object) const {
  zwlr_layer_surface_v1_destroy(object);
}

}  // namespace kestrin::wayland
