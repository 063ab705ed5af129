#pragma once

#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>
#include <xcb/xcb.h>

#include "platform/linux/descriptor.h"
#include "platform/result.h"

namespace kestrin {

struct FreeX11Reply {
  void operator()(void* reply) const { std::free(reply); }
};
/// A reply or event of the X server. Null where the request failed (its window is gone, say).
template <class T>
using X11Reply = std::unique_ptr<T, FreeX11Reply>;
template <class T>
X11Reply<T> x11Reply(T* reply) {
  return X11Reply<T>(reply);
}

/// One connection to an X server. Errors of requests are values here, never the end of the process,
/// and a server that goes away makes every later call fail. Opening takes well under a millisecond,
/// so most callers open one for each job instead of minding a shared one. Not thread-safe.
class X11Connection {
 public:
  /// `display` empty: the one of the environment. The error (domain `domain`, code 1) says what is
  /// missing.
  static Result<std::unique_ptr<X11Connection>> open(const std::string& display,
                                                     const std::string& domain);

  xcb_connection_t* raw() const { return connection_.get(); }
  xcb_window_t root() const { return screen_->root; }
  const xcb_screen_t& screen() const { return *screen_; }
  bool lost() const { return xcb_connection_has_error(raw()) != 0; }
  int descriptor() const { return xcb_get_file_descriptor(raw()); }

  xcb_atom_t atom(const std::string& name);
  std::string atomName(xcb_atom_t atom);

  struct Property {
    xcb_atom_t type = XCB_ATOM_NONE;
    uint8_t format = 0;
    std::string bytes;
    std::vector<uint32_t> words() const;
  };
  /// Nothing when the window or the property does not exist. `remove` deletes it in the same step.
  std::optional<Property> property(xcb_window_t window, xcb_atom_t name, bool remove = false);
  std::string textProperty(xcb_window_t window, const char* name);
  std::vector<uint32_t> wordsProperty(xcb_window_t window, const char* name);

  /// An invisible window to receive events and properties.
  xcb_window_t makeWindow(uint32_t eventMask);
  /// The server's present time, as requests about focus and selections must carry.
  xcb_timestamp_t serverTime(std::chrono::milliseconds limit);
  X11Reply<xcb_generic_event_t> nextEvent(const Deadline& deadline);
  /// Returns when the server has carried out everything sent so far; false when it is gone.
  bool roundTrip();

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* c) const { xcb_disconnect(c); }
  };
  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  const xcb_screen_t* screen_ = nullptr;
  std::map<std::string, xcb_atom_t> atoms_;
};

}  // namespace kestrin
