#include "platform/linux/x11_key_monitor.h"

#include <algorithm>

namespace kestrin {
namespace {

const char* const domain = "KeyMonitor";

using std::chrono::milliseconds;

}  // namespace

X11KeyMonitor::X11KeyMonitor(std::shared_ptr<SyntheticEdges> edges, std::string display)
    : edges_(std::move(edges)), display_(std::move(display)) {}

X11KeyMonitor::~X11KeyMonitor() { stop(); }

Result<X11KeyMonitor::Opened> X11KeyMonitor::connect() {
  auto x = X11Connection::open(display_, domain);
  if (!x) return x;
  if (!hasX11Input2(**x))
    return fail(domain, 2, "The X server lacks the input extension 2.2, so keys cannot be watched");
  keyboards_ = x11Keyboards(**x);
  selectX11RawKeys(**x);
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
      handle(*x, *event);
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

void X11KeyMonitor::handle(X11Connection& x, const xcb_generic_event_t& event) {
  const auto edge = x11RawKeyOf(x, event, keyboards_);
  if (!edge || edges_->consume(edge->key, edge->down)) return;
  if (edge->key.keycode == key_.x11Keycode) {
    setHeld(edge->down);
  } else if (edge->down && held_) {
    onEdge_(KeyEdge::otherKey);
  }
}

void X11KeyMonitor::setHeld(bool held) {
  if (std::exchange(held_, held) != held) onEdge_(held ? KeyEdge::holdDown : KeyEdge::holdUp);
}

}  // namespace kestrin
