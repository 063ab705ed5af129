#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>

#include "platform/linux/wayland_objects.h"
#include "platform/result.h"

namespace kestrin::wayland {

/// One connection to the compositor of the session, apart from the toolkit's, with what a surface
/// in a layer needs. A compositor that goes away makes `dispatch` fail, never the process. Every
/// call and every callback on one thread.
class Connection {
 public:
  /// Waits no longer than `limit`. Fails with one sentence for the user where there is no
  /// compositor, where it does not answer, and where it has no layers.
  static Result<std::unique_ptr<Connection>> open(std::chrono::milliseconds limit);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  /// Readable when `dispatch` has something to do.
  int descriptor() const;
  /// Hears what has come, and sends what is waiting; never waits. False: the compositor has gone.
  bool dispatch();
  void flush();

  wl_compositor* compositor() const { return compositor_.get(); }
  wl_shm* shm() const { return shm_.get(); }
  zwlr_layer_shell_v1* layerShell() const { return layerShell_.get(); }
  /// The first seat, for one who listens from its first event on; null where there is none.
  Owned<wl_seat> seat() const;
  bool hasOutputs() const { return !outputs_.empty(); }
  /// Pixels per point of an output; 1 for one that is unknown.
  int scaleOf(wl_output* output) const;
  int largestScale() const;

  std::function<void()> onOutputAdded;
  std::function<void(wl_output*)> onOutputGone;
  std::function<void()> onScale;
  /// The seat has come or gone.
  std::function<void()> onSeat;

 private:
  struct Output {
    Connection* connection = nullptr;
    Owned<wl_output> object;
    int scale = 1;
  };
  struct Listeners;
  Connection() = default;
  void globalAdded(uint32_t name, const char* interface, uint32_t version);
  void globalGone(uint32_t name);
  bool roundTrip(std::chrono::milliseconds limit);

  Owned<wl_display> display_;
  Owned<wl_registry> registry_;
  Owned<wl_compositor> compositor_;
  Owned<wl_shm> shm_;
  Owned<zwlr_layer_shell_v1> layerShell_;
  uint32_t seatName_ = 0, seatVersion_ = 0;              ///< 0: there is none
  std::map<uint32_t, std::unique_ptr<Output>> outputs_;  ///< by the registry's number
};

}  // namespace kestrin::wayland
