#include "platform/linux/layer_surface.h"

#include <algorithm>
#include <cstdlib>
#include <layer-shell-client-protocol.h>
#include <set>
#include <wayland-client.h>

#include "platform/linux/wayland_buffers.h"
#include "platform/linux/wayland_connection.h"
#include "platform/linux/wayland_pointer.h"

namespace kestrin {

using wayland::Owned;

/// The members below the connection end before it.
struct LayerSurface::Parts {
  std::unique_ptr<wayland::Connection> connection;
  Callbacks callbacks;
  std::unique_ptr<wayland::Pointer> pointer;
  wayland::Buffers buffers;
  Owned<wl_surface> surface;
  Owned<zwlr_layer_surface_v1> layer;
  Owned<wl_callback> frame;      ///< the compositor has not shown the last picture yet
  std::set<wl_output*> entered;  ///< where the surface is seen

  bool wanted = false;
  bool configured = false;
  bool dirty = false;
  int width = 0, height = 0, margin = 0;

  void listen();
  void create();
  void setPlace() const;
  void takeDown();
  void draw();
  int scale() const;
  void redraw() {
    dirty = true;
    draw();
  }
  void refreshPointer();
};

Status LayerSurface::offered(std::chrono::milliseconds limit) {
  const auto connection = wayland::Connection::open(limit);
  if (!connection) return fail(connection.error());
  return {};
}

Result<std::unique_ptr<LayerSurface>> LayerSurface::open(Callbacks callbacks,
                                                         std::chrono::milliseconds limit) {
  auto connection = wayland::Connection::open(limit);
  if (!connection) return fail(connection.error());
  auto parts = std::make_unique<Parts>();
  parts->connection = std::move(*connection);
  parts->callbacks = std::move(callbacks);
  parts->listen();
  return std::unique_ptr<LayerSurface>(new LayerSurface(std::move(parts)));
}

std::string LayerSurface::loss(const Error& reason) {
  const char* display = std::getenv("DISPLAY");
  const bool hasX = display != nullptr && *display != '\0';
  return reason.description +
         (hasX ? "; the overlay goes through XWayland, and full-screen windows may cover it"
               : "; the overlay is not shown, since a window would take the focus: the tray tells "
                 "what happens");
}

LayerSurface::LayerSurface(std::unique_ptr<Parts> parts) : parts_(std::move(parts)) {}

LayerSurface::~LayerSurface() = default;

int LayerSurface::descriptor() const { return parts_->connection->descriptor(); }

bool LayerSurface::dispatch() {
  if (!parts_->connection->dispatch()) return false;
  // A picture may have come back.
  parts_->draw();
  parts_->connection->flush();
  return true;
}

void LayerSurface::show(int width, int height, int margin) {
  auto& p = *parts_;
  const bool changed = width != p.width || height != p.height || margin != p.margin;
  p.wanted = true;
  p.width = width;
  p.height = height;
  p.margin = margin;
  if (!p.surface) {
    p.create();
  } else if (changed) {
    p.setPlace();
  }
  update();
}

void LayerSurface::update() {
  parts_->redraw();
  parts_->connection->flush();
}

void LayerSurface::hide() {
  parts_->wanted = false;
  parts_->takeDown();
  parts_->connection->flush();
}

void LayerSurface::Parts::listen() {
  connection->onOutputAdded = [this] {
    if (wanted && !surface) create();
  };
  connection->onOutputGone = [this](wl_output* output) { entered.erase(output); };
  connection->onScale = [this] { redraw(); };
  connection->onSeat = [this] { refreshPointer(); };
  refreshPointer();
}

void LayerSurface::Parts::refreshPointer() {
  pointer.reset();
  auto seat = connection->seat();
  if (!seat) return;
  pointer = std::make_unique<wayland::Pointer>(
      std::move(seat), connection->compositor(), connection->shm(),
      [this](double x, double y) { callbacks.press(x, y); });
}

void LayerSurface::Parts::create() {
  static constexpr wl_surface_listener surfaceListener{
      .enter =
          [](void* data, wl_surface*, wl_output* output) {
            auto& parts = *static_cast<Parts*>(data);
            parts.entered.insert(output);
            parts.redraw();
          },
      .leave = [](void* data, wl_surface*,
                  wl_output* output) { static_cast<Parts*>(data)->entered.erase(output); }};
  static constexpr zwlr_layer_surface_v1_listener layerListener{
      .configure =
          [](void* data, zwlr_layer_surface_v1* layer, uint32_t serial, uint32_t, uint32_t) {
            auto& parts = *static_cast<Parts*>(data);
            zwlr_layer_surface_v1_ack_configure(layer, serial);
            parts.configured = true;
            parts.redraw();
          },
      .closed =
          [](void* data, zwlr_layer_surface_v1*) {
            auto& parts = *static_cast<Parts*>(data);
            // Its screen has gone. One that closes it before it was ever shown has no other.
            const bool again = parts.configured && parts.connection->hasOutputs();
            parts.takeDown();
            if (again) parts.create();
          }};
  // Without a screen the compositor would close it at once; the next one brings it.
  if (!connection->hasOutputs()) return;
  surface.reset(wl_compositor_create_surface(connection->compositor()));
  wl_surface_add_listener(surface.get(), &surfaceListener, this);
  // No output: the compositor takes the one in use.
  layer.reset(zwlr_layer_shell_v1_get_layer_surface(connection->layerShell(), surface.get(),
                                                    nullptr, ZWLR_LAYER_SHELL_V1_LAYER_OVERLAY,
                                                    "kestrin-overlay"));
  zwlr_layer_surface_v1_add_listener(layer.get(), &layerListener, this);
  zwlr_layer_surface_v1_set_anchor(
      layer.get(), ZWLR_LAYER_SURFACE_V1_ANCHOR_BOTTOM | ZWLR_LAYER_SURFACE_V1_ANCHOR_RIGHT);
  zwlr_layer_surface_v1_set_keyboard_interactivity(layer.get(), 0);
  setPlace();
  // The compositor answers with the place; only then comes the first picture.
  wl_surface_commit(surface.get());
}

void LayerSurface::Parts::setPlace() const {
  zwlr_layer_surface_v1_set_size(layer.get(), static_cast<uint32_t>(width),
                                 static_cast<uint32_t>(height));
  zwlr_layer_surface_v1_set_margin(layer.get(), 0, margin, margin, 0);
}

void LayerSurface::Parts::takeDown() {
  frame.reset();
  layer.reset();
  surface.reset();
  buffers.clear();
  entered.clear();
  configured = false;
}

int LayerSurface::Parts::scale() const {
  if (entered.empty()) return connection->largestScale();
  int largest = 1;
  for (wl_output* output : entered) largest = std::max(largest, connection->scaleOf(output));
  return largest;
}

void LayerSurface::Parts::draw() {
  if (!dirty || !configured || frame) return;
  const int factor = scale();
  auto* buffer = buffers.acquire(connection->shm(), width * factor, height * factor);
  if (buffer == nullptr) return;  // the next release brings us here again
  dirty = false;
  callbacks.draw({buffer->pixels(), buffer->width(), buffer->height(), buffer->stride(), factor});
  static constexpr wl_callback_listener shown{.done = [](void* data, wl_callback*, uint32_t) {
    auto& parts = *static_cast<Parts*>(data);
    parts.frame.reset();
    parts.draw();
  }};
  frame.reset(wl_surface_frame(surface.get()));
  wl_callback_add_listener(frame.get(), &shown, this);
  wl_surface_set_buffer_scale(surface.get(), factor);
  wl_surface_attach(surface.get(), buffer->handOver(), 0, 0);
  wl_surface_damage_buffer(surface.get(), 0, 0, buffer->width(), buffer->height());
  wl_surface_commit(surface.get());
}

}  // namespace kestrin
