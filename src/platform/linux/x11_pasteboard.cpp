#include "platform/linux/x11_pasteboard.h"

#include "platform/linux/latin1.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

const char* const domain = "Pasteboard";
constexpr std::chrono::milliseconds callLimit(1000);

/// Asks the clipboard's owner for its text, in pieces where it is big.
class SelectionReader {
 public:
  explicit SelectionReader(X11Connection& x)
      : x_(x),
        window_(x.makeWindow(XCB_EVENT_MASK_PROPERTY_CHANGE)),
        property_(x.atom("KESTRIN_CLIPBOARD")),
        deadline_(callLimit) {}

  std::optional<std::string> read(xcb_atom_t target) {
    xcb_convert_selection(x_.raw(), window_, x_.atom("CLIPBOARD"), target, property_,
                          XCB_CURRENT_TIME);
    while (auto event = x_.nextEvent(deadline_)) {
      if ((event->response_type & 0x7f) != XCB_SELECTION_NOTIFY) continue;
      const auto* notify = reinterpret_cast<const xcb_selection_notify_event_t*>(event.get());
      if (notify->property == XCB_NONE) return std::nullopt;
      auto content = x_.property(window_, property_, true);
      if (!content) return std::nullopt;
      return content->type == x_.atom("INCR") ? readPieces() : content->bytes;
    }
    return std::nullopt;
  }

 private:
  std::optional<std::string> readPieces() {
    std::string whole;
    while (auto event = x_.nextEvent(deadline_)) {
      if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY) continue;
      const auto* change = reinterpret_cast<const xcb_property_notify_event_t*>(event.get());
      if (change->atom != property_ || change->state != XCB_PROPERTY_NEW_VALUE) continue;
      auto piece = x_.property(window_, property_, true);
      if (!piece) continue;
      if (piece->bytes.empty()) return whole;
      whole += piece->bytes;
    }
    return std::nullopt;  // half a text is worse than none
  }

  X11Connection& x_;
  xcb_window_t window_;
  xcb_atom_t property_;
  Deadline deadline_;
};

}  // namespace

X11Pasteboard::X11Pasteboard(std::string display) : display_(std::move(display)) {}
X11Pasteboard::~X11Pasteboard() = default;

X11Pasteboard::Server X11Pasteboard::current() {
  const std::lock_guard lock(mutex_);
  return server_;
}

Result<X11Pasteboard::Server> X11Pasteboard::connected() {
  const std::lock_guard lock(mutex_);
  if (!server_ || server_->lost()) {
    auto started = X11SelectionServer::start(display_, domain);
    if (!started) return fail(started.error());
    server_ = std::move(*started);
  }
  return server_;
}

std::optional<std::string> X11Pasteboard::string() {
  if (auto server = current()) {
    if (auto own = server->ownText()) return own;
  }
  auto x = X11Connection::open(display_, domain);
  if (!x) return std::nullopt;
  SelectionReader reader(**x);
  if (auto utf8 = reader.read((*x)->atom("UTF8_STRING"))) return text::replaceInvalidUtf8(*utf8);
  if (auto latin1 = reader.read(XCB_ATOM_STRING)) return utf8FromLatin1(*latin1);
  return std::nullopt;
}

Status X11Pasteboard::setString(const std::string& text) {
  auto server = connected();
  if (!server) return fail(server.error());
  if (!(*server)->offer(text, callLimit))
    return fail(domain, 2, "The clipboard could not be taken over");
  return {};
}

Status X11Pasteboard::clear() {
  auto server = connected();
  if (!server) return fail(server.error());
  if (!(*server)->clear(callLimit)) return fail(domain, 3, "The clipboard could not be cleared");
  return {};
}

int X11Pasteboard::fetches() {
  auto server = current();
  return server ? server->fetches() : 0;
}

bool X11Pasteboard::waitForFetch(int seen, Duration timeout) {
  auto server = current();
  return server && server->waitForFetch(seen, timeout);
}

bool X11Pasteboard::isOwner() {
  auto server = current();
  return server && server->ownText().has_value();
}

}  // namespace kestrin
