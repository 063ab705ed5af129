#include "platform/linux/x11_keyboard.h"

#include <string_view>
#include <xcb/xinput.h>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace kestrin {

bool hasX11Input2(X11Connection& x) {
  const auto* extension = xcb_get_extension_data(x.raw(), &xcb_input_id);
  if (!extension || !extension->present) return false;
  auto version = x11Reply(xcb_input_xi_query_version_reply(
      x.raw(), xcb_input_xi_query_version(x.raw(), 2, 2), nullptr));
  return version && (version->major_version > 2 || version->minor_version >= 2);
}

std::vector<X11KeyboardDevice> x11Keyboards(X11Connection& x) {
  std::vector<X11KeyboardDevice> found;
  auto reply = x11Reply(xcb_input_xi_query_device_reply(
      x.raw(), xcb_input_xi_query_device(x.raw(), XCB_INPUT_DEVICE_ALL), nullptr));
  if (!reply) return found;
  for (auto i = xcb_input_xi_query_device_infos_iterator(reply.get()); i.rem;
       xcb_input_xi_device_info_next(&i)) {
    if (i.data->type != XCB_INPUT_DEVICE_TYPE_SLAVE_KEYBOARD) continue;
    const std::string_view name(xcb_input_xi_device_info_name(i.data),
                                static_cast<size_t>(xcb_input_xi_device_info_name_length(i.data)));
    found.push_back({i.data->deviceid, name.find("XTEST") != name.npos});
  }
  return found;
}

X11KeySet x11PressedKeys(X11Connection& x) {
  X11KeySet keys;
  if (auto reply = x11Reply(xcb_query_keymap_reply(x.raw(), xcb_query_keymap(x.raw()), nullptr)))
    keys.addBytes(reply->keys, sizeof reply->keys);
  return keys;
}

std::vector<X11KeyDown> x11KeysDown(X11Connection& x) {
  std::vector<X11KeyDown> keys;
  for (const auto& device : x11Keyboards(x)) {
    auto cookie = xcb_input_query_device_state(x.raw(), static_cast<uint8_t>(device.id));
    auto reply = x11Reply(xcb_input_query_device_state_reply(x.raw(), cookie, nullptr));
    if (!reply) continue;
    X11KeySet down;
    for (auto i = xcb_input_query_device_state_classes_iterator(reply.get()); i.rem;
         xcb_input_input_state_next(&i)) {
      if (i.data->class_id != XCB_INPUT_INPUT_CLASS_KEY) continue;
      const auto* state = reinterpret_cast<const xcb_input_key_state_t*>(i.data);
      down.addBytes(state->keys, sizeof state->keys);
    }
    for (int keycode = 8; keycode < 256; ++keycode) {
      const auto code = static_cast<uint8_t>(keycode);
      const uint16_t id = device.synthetic ? uint16_t{0} : device.id;
      if (down.contains(code)) keys.push_back({{id, code}, cookie.sequence});
    }
  }
  return keys;
}

void selectX11RawKeys(X11Connection& x) {
  struct {
    xcb_input_event_mask_t head;
    uint32_t mask;
    // Masters only: every event of a device comes again as its master's.
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
              XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE};
  xcb_input_xi_select_events(x.raw(), x.root(), 1, &selection.head);
}

std::optional<X11RawKey> x11RawKeyOf(X11Connection& x, const xcb_generic_event_t& event,
                                     const std::vector<X11KeyboardDevice>& keyboards) {
  if ((event.response_type & 0x7f) != XCB_GE_GENERIC) return std::nullopt;
  const auto& raw = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
  if (raw.extension != xcb_get_extension_data(x.raw(), &xcb_input_id)->major_opcode)
    return std::nullopt;
  const bool down = raw.event_type == XCB_INPUT_RAW_KEY_PRESS;
  if (!down && raw.event_type != XCB_INPUT_RAW_KEY_RELEASE) return std::nullopt;
  uint16_t device = raw.sourceid;
  for (const auto& keyboard : keyboards) {
    if (keyboard.id == raw.sourceid && keyboard.synthetic) device = 0;
  }
  return X11RawKey{{device, static_cast<uint8_t>(raw.detail)}, down, raw.full_sequence};
}

Result<X11Layout> X11Layout::read(X11Connection& x, const std::string& domain) {
  const auto* setup = xcb_get_setup(x.raw());
  X11Layout layout;
  layout.firstKeycode_ = setup->min_keycode;
  const auto count = static_cast<uint8_t>(setup->max_keycode - setup->min_keycode + 1);
  auto mappingCookie = xcb_get_keyboard_mapping(x.raw(), setup->min_keycode, count);
  auto modifierCookie = xcb_get_modifier_mapping(x.raw());
  auto mapping = x11Reply(xcb_get_keyboard_mapping_reply(x.raw(), mappingCookie, nullptr));
  auto modifiers = x11Reply(xcb_get_modifier_mapping_reply(x.raw(), modifierCookie, nullptr));
  if (!mapping || !modifiers) return fail(domain, 2, "The keyboard layout cannot be read");
  layout.columns_ = mapping->keysyms_per_keycode;
  const auto* symbols = xcb_get_keyboard_mapping_keysyms(mapping.get());
  layout.symbols_.assign(symbols, symbols + xcb_get_keyboard_mapping_keysyms_length(mapping.get()));

  if (hasX11Input2(x)) {
    auto device = x11Reply(xcb_input_xi_get_client_pointer_reply(
        x.raw(), xcb_input_xi_get_client_pointer(x.raw(), XCB_NONE), nullptr));
    auto state = device
                     ? x11Reply(xcb_input_xi_query_pointer_reply(
                           x.raw(), xcb_input_xi_query_pointer(x.raw(), x.root(), device->deviceid),
                           nullptr))
                     : nullptr;
    if (state) layout.group_ = state->group.effective;
  }

  const auto* keycodes = xcb_get_modifier_mapping_keycodes(modifiers.get());
  const int perModifier = modifiers->keycodes_per_modifier;
  for (int modifier = 0; modifier < 8; ++modifier) {
    if (modifier == XCB_MAP_INDEX_LOCK) continue;
    for (int i = 0; i < perModifier; ++i) {
      const uint8_t keycode = keycodes[modifier * perModifier + i];
      if (keycode == 0) continue;
      const uint32_t symbol = layout.symbolAt(keycode, 0);
      if (symbol != XKB_KEY_Num_Lock && symbol != XKB_KEY_Caps_Lock &&
          symbol != XKB_KEY_Shift_Lock && symbol != XKB_KEY_Scroll_Lock)
        layout.plainModifiers_.push_back(keycode);
    }
  }
  return layout;
}

uint32_t X11Layout::symbolAt(uint8_t keycode, int column) const {
  const int index = (keycode - firstKeycode_) * columns_ + column;
  if (column >= columns_ || index < 0 || index >= static_cast<int>(symbols_.size())) return 0;
  return symbols_[static_cast<size_t>(index)];
}

X11Layout::Place X11Layout::find(uint32_t symbol) const {
  // The server lays the first two groups side by side, two levels each.
  const int own = group_ == 1 ? 2 : 0;
  for (const int column : {own, own + 1, 2 - own, 3 - own}) {
    for (int keycode = firstKeycode_; keycode < 256; ++keycode) {
      const auto code = static_cast<uint8_t>(keycode);
      if (symbolAt(code, column) == symbol) return {code, column % 2 == 1};
    }
  }
  return {};
}

bool X11Layout::has(uint8_t keycode) const {
  for (int column = 0; column < columns_; ++column) {
    if (symbolAt(keycode, column) != 0) return true;
  }
  return false;
}

}  // namespace kestrin
