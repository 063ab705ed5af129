#pragma once

#include <memory>

struct wl_buffer;
struct wl_callback;
struct wl_compositor;
struct wl_cursor_theme;
struct wl_display;
struct wl_output;
struct wl_pointer;
struct wl_registry;
struct wl_seat;
struct wl_shm;
struct wl_shm_pool;
struct wl_surface;
struct wl_touch;
struct zwlr_layer_shell_v1;
struct zwlr_layer_surface_v1;

namespace kestrin::wayland {

struct Destroy {
  void operator()(wl_buffer* object) const;
  void operator()(wl_callback* object) const;
  void operator()(wl_compositor* object) const;
  void operator()(wl_cursor_theme* object) const;
  void operator()(wl_display* object) const;
  void operator()(wl_output* object) const;
  void operator()(wl_pointer* object) const;
  void operator()(wl_registry* object) const;
  void operator()(wl_seat* object) const;
  void operator()(wl_shm* object) const;
  void operator()(wl_shm_pool* object) const;
  void operator()(wl_surface* object) const;
  void operator()(wl_touch* object) const;
  void operator()(zwlr_layer_shell_v1* object) const;
  void operator()(zwlr_layer_surface_v1* object) const;
};

/// An object of the compositor that ends with its owner. Nobody else keeps it alive; a listener may
/// destroy the object that it hears.
template <class T>
using Owned = std::unique_ptr<T, Destroy>;

}  // namespace kestrin::wayland
