#pragma once

#include <vector>

#include "platform/linux/x11_keyboard.h"

namespace kestrin {

/// Sends an edge of a key and announces it to our key monitor.
void sendX11Key(X11Connection& x, SyntheticEdges& edges, DeviceKey key, bool down);

/// The modifiers that are down while a chord is sent: let go before it and pressed again after it,
/// unless the user has let go meanwhile. Each is released and pressed on the very keyboard that
/// holds it, so that no other device is left with a key down that nobody will release.
class X11HeldModifiers {
 public:
  /// `modifiers`: keycodes that may be released and put back.
  X11HeldModifiers(X11Connection& x, SyntheticEdges& edges, const std::vector<uint8_t>& modifiers);
  void release();
  void restore();

 private:
  struct Held {
    DeviceKey key;
    uint32_t asOf = 0;  ///< edges before this request had happened when it was seen down
    /// Releases less presses that were not ours: 0 while the finger stays down.
    int lettingGo = 0;
  };
  void send(Held& held, bool down);
  void readEdges();

  X11Connection& x_;
  SyntheticEdges& edges_;
  std::vector<Held> held_;
};

}  // namespace kestrin
