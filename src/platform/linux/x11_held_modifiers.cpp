#include "platform/linux/x11_held_modifiers.h"

#include <algorithm>
#include <xcb/xinput.h>
#include <xcb/xtest.h>

namespace kestrin {

void sendX11Key(X11Connection& x, SyntheticEdges& edges, DeviceKey key, bool down) {
  edges.announce(key, down);
  uint8_t type = down ? XCB_KEY_PRESS : XCB_KEY_RELEASE;
  if (key.device != 0) {
    // Events of the input extension's own numbering go to one device.
    const auto first = xcb_get_extension_data(x.raw(), &xcb_input_id)->first_event;
    type = static_cast<uint8_t>(first +
                                (down ? XCB_INPUT_DEVICE_KEY_PRESS : XCB_INPUT_DEVICE_KEY_RELEASE));
  }
  xcb_test_fake_input(x.raw(), type, key.keycode, XCB_CURRENT_TIME, XCB_NONE, 0, 0,
                      static_cast<uint8_t>(key.device));
}

X11HeldModifiers::X11HeldModifiers(X11Connection& x, SyntheticEdges& edges,
                                   const std::vector<uint8_t>& modifiers)
    : x_(x), edges_(edges) {
  if (!hasX11Input2(x)) return;  // a server of before 2011: nobody can say what is held where
  selectX11RawKeys(x);
  const X11KeySet down = x11PressedKeys(x);
  for (const auto& [key, asOf] : x11KeysDown(x)) {
    const bool modifier =
        std::find(modifiers.begin(), modifiers.end(), key.keycode) != modifiers.end();
    if (modifier && down.contains(key.keycode)) held_.push_back({key, asOf});
  }
}

void X11HeldModifiers::send(Held& held, bool down) {
  sendX11Key(x_, edges_, held.key, down);
  held.lettingGo += down ? 1 : -1;  // the event that we shall see of it evens this out
}

void X11HeldModifiers::release() {
  for (Held& held : held_) send(held, false);
}

void X11HeldModifiers::restore() {
  if (held_.empty()) return;
  readEdges();
  const auto stillDown = x11KeysDown(x_);
  std::vector<Held*> restored;
  for (Held& held : held_) {
    // Down again already: let go and pressed anew.
    const bool isDown = std::any_of(stillDown.begin(), stillDown.end(),
                                    [&](const X11KeyDown& down) { return down.key == held.key; });
    if (held.lettingGo != 0 || isDown) continue;
    send(held, true);
    restored.push_back(&held);
  }
  // Who lets go between our look and our press must not find the key stuck.
  readEdges();
  for (Held* held : restored) {
    if (held->lettingGo > 0) send(*held, false);
  }
}

void X11HeldModifiers::readEdges() {
  const auto keyboards = x11Keyboards(x_);  // and with the answer everything that came before it
  while (auto event = x11Reply(xcb_poll_for_queued_event(x_.raw()))) {
    const auto edge = x11RawKeyOf(x_, *event, keyboards);
    if (!edge) continue;
    for (Held& held : held_) {
      const bool later = static_cast<int32_t>(edge->sequence - held.asOf) >= 0;
      if (held.key == edge->key && later) held.lettingGo += edge->down ? -1 : 1;
    }
  }
}

}  // namespace kestrin
