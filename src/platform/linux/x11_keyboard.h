#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/synthetic_edges.h"
#include "platform/linux/x11_connection.h"

namespace kestrin {

/// One bit a keycode, as the X server reports them.
class X11KeySet {
 public:
  bool contains(uint8_t keycode) const { return (bits_[keycode / 8] >> (keycode % 8)) & 1; }
  void addBytes(const uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count && i < bits_.size(); ++i) bits_[i] |= bytes[i];
  }

 private:
  std::array<uint8_t, 32> bits_{};
};

struct X11KeyboardDevice {
  uint16_t id = 0;
  bool synthetic = false;  ///< the server's own device for events made by programs
};

/// False when the server's input extension is missing or older than 2.2.
bool hasX11Input2(X11Connection& x);
/// The devices behind the master keyboards.
std::vector<X11KeyboardDevice> x11Keyboards(X11Connection& x);
/// Keys that are logically down.
X11KeySet x11PressedKeys(X11Connection& x);
struct X11KeyDown {
  DeviceKey key;
  uint32_t asOf = 0;  ///< number of the request that was answered so
};
/// Keys that are down on each keyboard by itself.
std::vector<X11KeyDown> x11KeysDown(X11Connection& x);

/// Asks for every key's edges, whoever has the focus or a grab, without auto-repeat.
void selectX11RawKeys(X11Connection& x);
struct X11RawKey {
  DeviceKey key;
  bool down = false;
  uint32_t sequence = 0;  ///< number of the request after which it happened
};
/// Nothing when the event is another one.
std::optional<X11RawKey> x11RawKeyOf(X11Connection& x, const xcb_generic_event_t& event,
                                     const std::vector<X11KeyboardDevice>& keyboards);

/// Key symbols of the present layout.
class X11Layout {
 public:
  static Result<X11Layout> read(X11Connection& x, const std::string& domain);

  struct Place {
    uint8_t keycode = 0;
    bool shifted = false;
  };
  /// Where the symbol is, in the group in use or else in another one; keycode 0: the layout lacks
  /// it.
  Place find(uint32_t symbol) const;
  bool has(uint8_t keycode) const;
  /// Keys that are modifiers and can be released and put back without a trace (lock keys cannot).
  const std::vector<uint8_t>& plainModifiers() const { return plainModifiers_; }

 private:
  uint32_t symbolAt(uint8_t keycode, int column) const;

  int firstKeycode_ = 8;
  int columns_ = 0;
  int group_ = 0;
  std::vector<uint32_t> symbols_;
  std::vector<uint8_t> plainModifiers_;
};

}  // namespace kestrin
