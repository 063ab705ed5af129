#include "platform/linux/x11_key_monitor.h"

#include <algorithm>
#include <xcb/xinput.h>

#include "platform/linux/x11_keyboard.h"

namespace kestrin {
namespace {

const char* const domain = "KeyMonitor";

using std::chrono::milliseconds;

void selectRawKeys(X11Connection& x) {
  struct {
    xcb_input_event_mask_t head;
    uint32_t mask;
    // Masters only: every event of a device comes again as its master's.
  } selection{{XCB_INPUT_DEVICE_ALL_MASTER, 1},
              XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_RAW_KEY_RELEASE};
  xcb_input_xi_select_events(x.raw(), x.root(), 1, &selection.head);
}

}  // namespace

X11KeyMonitor::X11KeyMonitor(std::shared_ptr<SyntheticEdges> edges, std::string display)
    : edges_(std::move(edges)), display_(std::move(display)) {}

X11KeyMonitor::~X11KeyMonitor() { stop(); }

Result<X11KeyMonitor::Opened> X11KeyMonitor::connect() {
  auto x = X11Connection::open(display_, domain);
  if (!x) return x;
  if (!hasX11Input2(**x))
    return fail(domain, 2, "The X server lacks the input extension 2.2, so keys cannot be watched");
  inputOpcode_ = xcb_get_extension_data((*x)->raw(), &xcb_input_id)->major_opcode;
  syntheticDevices_.clear();
  for (const auto& device : x11Keyboards(**x)) {
    if (device.synthetic) syntheticDevices_.insert(device.id);
  }
  selectRawKeys(**x);
  if (!(*x)->roundTrip()) return fail(domain, 1, "The X display went away");
  return x;
}

Status X11KeyMonitor::start(const std::string& key, std::function<void(KeyEdge)> onEdge) {
  stop();
  const auto known = holdKeyNamed(key);
  if (!known) return fail(domain, 3, "There is no key named \"" + key + "\" to hold");
  auto x = connect();
  if (!x) return fail(x.error());
  const auto layout = X11Layout::read(**x, domain);
  if (!layout) return fail(layout.error());
  if (!layout->has(static_cast<uint8_t>(known->x11Keycode)))
    return fail(domain, 4,
                std::string("This keyboard has no ") + known->name + " key; choose another");
  key_ = *known;
  onEdge_ = std::move(onEdge);
  held_ = false;
  stopping_ = false;
  thread_ = std::thread([this, opened = std::move(*x)]() mutable { watch(std::move(opened)); });
  return {};
}

void X11KeyMonitor::stop() {
  if (!thread_.joinable()) return;
  stopping_ = true;
  wake_.signal();
  thread_.join();
  wake_.reset();
  onEdge_ = nullptr;
}

std::vector<std::string> X11KeyMonitor::availableKeys() {
  std::vector<std::string> names;
  auto x = X11Connection::open(display_, domain);
  if (!x) return names;
  const auto layout = X11Layout::read(**x, domain);
  if (!layout) return names;
  for (const HoldKey& key : holdKeys()) {
    if (layout->has(static_cast<uint8_t>(key.x11Keycode))) names.emplace_back(key.name);
  }
  return names;
}

void X11KeyMonitor::watch(Opened x) {
  milliseconds pause(50);
  while (!stopping_) {
    while (auto event = x11Reply(xcb_poll_for_event(x->raw()))) {
      handle(*event);
      if (stopping_) return;
    }
    if (!x->lost()) {
      waitReadable({x->descriptor(), wake_.get()}, milliseconds(-1));
      continue;
    }
    // Nobody will tell us of the release: better a short recording than an endless one.
    setHeld(false);
    waitReadable({wake_.get()}, pause);
    if (auto again = stopping_ ? fail(domain, 1, "") : connect()) {
      x = std::move(*again);
      pause = milliseconds(50);
    } else {
      pause = std::min(pause * 2, milliseconds(2000));
    }
  }
}

void X11KeyMonitor::handle(const xcb_generic_event_t& event) {
  if ((event.response_type & 0x7f) != XCB_GE_GENERIC) return;
  // Raw events share one layout for keys and buttons.
  const auto& raw = reinterpret_cast<const xcb_input_raw_key_press_event_t&>(event);
  if (raw.extension != inputOpcode_) return;
  const bool down = raw.event_type == XCB_INPUT_RAW_KEY_PRESS;
  if (!down && raw.event_type != XCB_INPUT_RAW_KEY_RELEASE) return;
  if (syntheticDevices_.count(raw.sourceid) &&
      edges_->consume(static_cast<uint8_t>(raw.detail), down))
    return;
  if (static_cast<int>(raw.detail) == key_.x11Keycode) {
    setHeld(down);
  } else if (down && held_) {
    onEdge_(KeyEdge::otherKey);
  }
}

void X11KeyMonitor::setHeld(bool held) {
  if (std::exchange(held_, held) != held) onEdge_(held ? KeyEdge::holdDown : KeyEdge::holdUp);
}

}  // namespace kestrin
