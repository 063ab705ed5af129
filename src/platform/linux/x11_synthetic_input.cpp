#include "platform/linux/x11_synthetic_input.h"

#include <map>
#include <thread>
#include <xcb/xtest.h>
#include <xkbcommon/xkbcommon.h>

#include "platform/linux/x11_held_modifiers.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

const char* const domain = "SyntheticInput";

/// Programs that poll the keyboard miss a shorter press.
constexpr std::chrono::milliseconds keyHold(15);

/// Left and right symbol of each modifier.
const std::map<std::string, std::pair<uint32_t, uint32_t>> modifierSymbols = {
    {"control", {XKB_KEY_Control_L, XKB_KEY_Control_R}},
    {"shift", {XKB_KEY_Shift_L, XKB_KEY_Shift_R}},
    {"alt", {XKB_KEY_Alt_L, XKB_KEY_Alt_R}},
    {"super", {XKB_KEY_Super_L, XKB_KEY_Super_R}},
};

/// Everyday names that differ from the X server's by more than capital letters.
const std::map<std::string, uint32_t> keyAliases = {
    {"enter", XKB_KEY_Return},
    {"esc", XKB_KEY_Escape},
    {"pageup", XKB_KEY_Page_Up},
    {"pagedown", XKB_KEY_Page_Down},
};

uint32_t symbolNamed(const std::string& key) {
  const auto alias = keyAliases.find(text::lower(key));
  if (alias != keyAliases.end()) return alias->second;
  return xkb_keysym_from_name(key.c_str(), XKB_KEYSYM_CASE_INSENSITIVE);
}

}  // namespace

X11SyntheticInput::X11SyntheticInput(std::shared_ptr<SyntheticEdges> edges, std::string display)
    : edges_(std::move(edges)), display_(std::move(display)) {}

Status X11SyntheticInput::chord(const std::vector<std::string>& modifiers, const std::string& key) {
  const std::lock_guard lock(mutex_);
  auto opened = X11Connection::open(display_, domain);
  if (!opened) return fail(opened.error());
  X11Connection& x = **opened;
  const auto layout = X11Layout::read(x, domain);
  if (!layout) return fail(layout.error());

  const uint32_t symbol = symbolNamed(key);
  const auto place = symbol == XKB_KEY_NoSymbol ? X11Layout::Place{} : layout->find(symbol);
  if (place.keycode == 0) return fail(domain, 3, "The keyboard layout has no key \"" + key + "\"");
  std::vector<uint8_t> pressed;
  bool shift = place.shifted;
  const auto addModifier = [&](const std::string& name) -> Status {
    const auto symbols = modifierSymbols.find(name);
    if (symbols == modifierSymbols.end())
      return fail(domain, 4, "There is no modifier \"" + name + "\"");
    auto found = layout->find(symbols->second.first);
    if (found.keycode == 0) found = layout->find(symbols->second.second);
    if (found.keycode == 0)
      return fail(domain, 3, "The keyboard layout has no key \"" + name + "\"");
    pressed.push_back(found.keycode);
    return {};
  };
  for (const std::string& name : modifiers) {
    if (auto added = addModifier(name); !added) return added;
    if (name == "shift") shift = false;
  }
  if (shift) {
    if (auto added = addModifier("shift"); !added) return added;
  }
  pressed.push_back(place.keycode);

  X11HeldModifiers held(x, *edges_, layout->plainModifiers());
  held.release();
  for (const uint8_t keycode : pressed) sendX11Key(x, *edges_, {0, keycode}, true);
  if (!x.roundTrip()) return fail(domain, 1, "The X display went away");
  std::this_thread::sleep_for(keyHold);
  for (auto keycode = pressed.rbegin(); keycode != pressed.rend(); ++keycode)
    sendX11Key(x, *edges_, {0, *keycode}, false);
  held.restore();
  if (!x.roundTrip()) return fail(domain, 1, "The X display went away");
  return {};
}

Result<Point> X11SyntheticInput::pointer() {
  auto x = X11Connection::open(display_, domain);
  if (!x) return fail(x.error());
  auto cookie = xcb_query_pointer((*x)->raw(), (*x)->root());
  auto reply = x11Reply(xcb_query_pointer_reply((*x)->raw(), cookie, nullptr));
  if (!reply) return fail(domain, 1, "The X display went away");
  return Point{reply->root_x, reply->root_y};
}

Status X11SyntheticInput::fakePointer(uint8_t type, uint8_t detail, Point at) {
  auto x = X11Connection::open(display_, domain);
  if (!x) return fail(x.error());
  xcb_test_fake_input((*x)->raw(), type, detail, XCB_CURRENT_TIME,
                      type == XCB_MOTION_NOTIFY ? (*x)->root() : XCB_NONE,
                      static_cast<int16_t>(at.x), static_cast<int16_t>(at.y), 0);
  if (!(*x)->roundTrip()) return fail(domain, 1, "The X display went away");
  return {};
}

Status X11SyntheticInput::movePointer(Point to) { return fakePointer(XCB_MOTION_NOTIFY, 0, to); }

Status X11SyntheticInput::buttonDown(int button) {
  return fakePointer(XCB_BUTTON_PRESS, static_cast<uint8_t>(button), {});
}

Status X11SyntheticInput::buttonUp(int button) {
  return fakePointer(XCB_BUTTON_RELEASE, static_cast<uint8_t>(button), {});
}

}  // namespace kestrin
