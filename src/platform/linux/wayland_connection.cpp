#include "platform/linux/wayland_connection.h"

#include <algorithm>
#include <cstdlib>
#include <layer-shell-client-protocol.h>
#include <string_view>
#include <wayland-client.h>

#include "platform/linux/descriptor.h"
#include "platform/linux/layer_surface.h"

namespace kestrin::wayland {
namespace {

constexpr const char* domain = "Wayland";
/// Damage in pixels of the buffer, which every compositor of the last years has.
constexpr uint32_t compositorVersion = 4;
constexpr uint32_t seatVersion = 5;
constexpr uint32_t outputVersion = 2;

void done(void* data, wl_callback*, uint32_t) { *static_cast<bool*>(data) = true; }
constexpr wl_callback_listener doneListener{.done = done};

}  // namespace

struct Connection::Listeners {
  static void added(void* data, wl_registry*, uint32_t name, const char* interface,
                    uint32_t version) {
    static_cast<Connection*>(data)->globalAdded(name, interface, version);
  }
  static void gone(void* data, wl_registry*, uint32_t name) {
    static_cast<Connection*>(data)->globalGone(name);
  }
  static constexpr wl_registry_listener registry{.global = added, .global_remove = gone};

  static void scale(void* data, wl_output*, int32_t scale) {
    auto& output = *static_cast<Output*>(data);
    output.scale = std::max(scale, 1);
    if (output.connection->onScale) output.connection->onScale();
  }
  static constexpr wl_output_listener output{
      .geometry = [](void*, wl_output*, int32_t, int32_t, int32_t, int32_t, int32_t, const char*,
                     const char*, int32_t) {},
      .mode = [](void*, wl_output*, uint32_t, int32_t, int32_t, int32_t) {},
      .done = [](void*, wl_output*) {},
      .scale = scale};
};

Result<std::unique_ptr<Connection>> Connection::open(std::chrono::milliseconds limit) {
  // A socket that was handed to this process is the toolkit's.
  if (std::getenv("WAYLAND_SOCKET") != nullptr) {
    return fail(domain, LayerSurface::notReachable,
                "The compositor gave this program one connection only");
  }
  std::unique_ptr<Connection> made(new Connection);
  made->display_.reset(wl_display_connect(nullptr));
  if (!made->display_)
    return fail(domain, LayerSurface::notReachable, "No Wayland compositor can be reached");
  made->registry_.reset(wl_display_get_registry(made->display_.get()));
  wl_registry_add_listener(made->registry_.get(), &Listeners::registry, made.get());
  // First the objects, then what they say of themselves.
  const Deadline deadline(limit);
  if (!made->roundTrip(deadline.left()) || !made->roundTrip(deadline.left())) {
    return fail(domain, LayerSurface::noAnswer, "The Wayland compositor does not answer");
  }
  if (!made->compositor_ || !made->shm_ || !made->layerShell_) {
    return fail(domain, LayerSurface::noLayers, "This Wayland compositor has no layer shell");
  }
  return made;
}

Connection::~Connection() {
  // Everything of the compositor before the connection itself.
  outputs_.clear();
}

int Connection::descriptor() const { return wl_display_get_fd(display_.get()); }

void Connection::flush() {
  // What does not fit now goes with the next event: no more than a frame is ever on the way.
  wl_display_flush(display_.get());
}

bool Connection::dispatch() {
  wl_display* display = display_.get();
  while (wl_display_prepare_read(display) != 0) {
    if (wl_display_dispatch_pending(display) < 0) return false;
  }
  wl_display_flush(display);
  if (wl_display_read_events(display) < 0) return false;
  if (wl_display_dispatch_pending(display) < 0) return false;
  wl_display_flush(display);
  return wl_display_get_error(display) == 0;
}

bool Connection::roundTrip(std::chrono::milliseconds limit) {
  bool answered = false;
  const Owned<wl_callback> callback(wl_display_sync(display_.get()));
  wl_callback_add_listener(callback.get(), &doneListener, &answered);
  const Deadline deadline(limit);
  flush();
  while (dispatch()) {
    if (answered) return true;
    if (deadline.passed()) return false;
    waitReadable({descriptor()}, deadline.left());
  }
  return false;
}

Owned<wl_seat> Connection::seat() const {
  if (seatName_ == 0) return nullptr;
  return Owned<wl_seat>(static_cast<wl_seat*>(
      wl_registry_bind(registry_.get(), seatName_, &wl_seat_interface, seatVersion_)));
}

int Connection::scaleOf(wl_output* output) const {
  for (const auto& [name, known] : outputs_) {
    if (known->object.get() == output) return known->scale;
  }
  return 1;
}

int Connection::largestScale() const {
  int largest = 1;
  for (const auto& [name, output] : outputs_) largest = std::max(largest, output->scale);
  return largest;
}

void Connection::globalAdded(uint32_t name, const char* interface, uint32_t version) {
  const std::string_view kind = interface;
  const auto bind = [&](const wl_interface& wanted, uint32_t wantedVersion) {
    return wl_registry_bind(registry_.get(), name, &wanted, std::min(version, wantedVersion));
  };
  if (kind == wl_compositor_interface.name && version >= compositorVersion) {
    compositor_.reset(
        static_cast<wl_compositor*>(bind(wl_compositor_interface, compositorVersion)));
  } else if (kind == wl_shm_interface.name) {
    shm_.reset(static_cast<wl_shm*>(bind(wl_shm_interface, 1)));
  } else if (kind == zwlr_layer_shell_v1_interface.name) {
    layerShell_.reset(static_cast<zwlr_layer_shell_v1*>(bind(zwlr_layer_shell_v1_interface, 1)));
  } else if (kind == wl_seat_interface.name && seatName_ == 0) {
    seatName_ = name;
    seatVersion_ = std::min(version, seatVersion);
    if (onSeat) onSeat();
  } else if (kind == wl_output_interface.name) {
    auto& output = outputs_[name] = std::make_unique<Output>();
    output->connection = this;
    output->object.reset(static_cast<wl_output*>(bind(wl_output_interface, outputVersion)));
    wl_output_add_listener(output->object.get(), &Listeners::output, output.get());
    if (onOutputAdded) onOutputAdded();
  }
}

void Connection::globalGone(uint32_t name) {
  if (name == seatName_) {
    seatName_ = 0;
    if (onSeat) onSeat();
    return;
  }
  const auto found = outputs_.find(name);
  if (found == outputs_.end()) return;
  const auto last = std::move(found->second);
  outputs_.erase(found);
  if (onOutputGone) onOutputGone(last->object.get());
}

}  // namespace kestrin::wayland
