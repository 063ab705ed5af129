#include "platform/linux/key_names.h"

#include <linux/input-event-codes.h>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr HoldKey key(const char* name, int code) { return {name, code, code + 8}; }

}  // namespace

const std::vector<HoldKey>& holdKeys() {
  static const std::vector<HoldKey> keys = {
      key("Right Ctrl", KEY_RIGHTCTRL),
      key("Right Super", KEY_RIGHTMETA),
      key("Right Alt", KEY_RIGHTALT),
      key("Menu", KEY_COMPOSE),
      key("Caps Lock", KEY_CAPSLOCK),
      key("F13", KEY_F13),
      key("F14", KEY_F14),
      key("F15", KEY_F15),
      key("F16", KEY_F16),
      key("F17", KEY_F17),
      key("F18", KEY_F18),
      key("F19", KEY_F19),
      key("F20", KEY_F20),
      key("F21", KEY_F21),
      key("F22", KEY_F22),
      key("F23", KEY_F23),
      key("F24", KEY_F24),
      // KEY_FN lies above the X server's limit; there it can be seen only where the firmware sends
      // the wake-up key for it.
      {"fn", KEY_FN, KEY_WAKEUP + 8},
  };
  return keys;
}

std::optional<HoldKey> holdKeyNamed(const std::string& name) {
  const std::string wanted = text::lower(text::trim(name));
  for (const HoldKey& key : holdKeys()) {
    if (text::lower(key.name) == wanted) return key;
  }
  return std::nullopt;
}

}  // namespace kestrin
