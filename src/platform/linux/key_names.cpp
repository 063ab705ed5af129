#include "platform/linux/key_names.h"

#include <linux/input-event-codes.h>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr HoldKey key(const char* name, int code, const char* symbol) {
  return {name, code, code + 8, symbol};
}

}  // namespace

const std::vector<HoldKey>& holdKeys() {
  static const std::vector<HoldKey> keys = {
      key("Right Ctrl", KEY_RIGHTCTRL, "Control_R"),
      key("Right Super", KEY_RIGHTMETA, "Super_R"),
      key("Right Alt", KEY_RIGHTALT, "Alt_R"),
      key("Menu", KEY_COMPOSE, "Menu"),
      key("Caps Lock", KEY_CAPSLOCK, "Caps_Lock"),
      key("F13", KEY_F13, "F13"),
      key("F14", KEY_F14, "F14"),
      key("F15", KEY_F15, "F15"),
      key("F16", KEY_F16, "F16"),
      key("F17", KEY_F17, "F17"),
      key("F18", KEY_F18, "F18"),
      key("F19", KEY_F19, "F19"),
      key("F20", KEY_F20, "F20"),
      key("F21", KEY_F21, "F21"),
      key("F22", KEY_F22, "F22"),
      key("F23", KEY_F23, "F23"),
      key("F24", KEY_F24, "F24"),
      // KEY_FN lies above the X server's limit; there it can be seen only where the firmware sends
      // the wake-up key for it.
      {"fn", KEY_FN, KEY_WAKEUP + 8, "XF86WakeUp"},
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
