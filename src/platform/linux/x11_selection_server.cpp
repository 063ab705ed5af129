#include "platform/linux/x11_selection_server.h"

#include <algorithm>

#include "platform/linux/latin1.h"

namespace kestrin {
namespace {

using std::chrono::milliseconds;

/// Bigger texts go in pieces of this size; every X server takes a request of four times as much.
constexpr size_t pieceSize = 64 * 1024;
constexpr milliseconds transferPatience(5000);
constexpr milliseconds managerPatience(1000);

bool isTextTarget(X11Connection& x, xcb_atom_t target) {
  return target == XCB_ATOM_STRING || target == x.atom("UTF8_STRING") ||
         target == x.atom("text/plain;charset=utf-8");
}

void put(X11Connection& x, xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
         std::string_view bytes) {
  xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, window, property, type, 8,
                      static_cast<uint32_t>(bytes.size()), bytes.data());
}

void putWords(X11Connection& x, xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
              const std::vector<uint32_t>& words) {
  xcb_change_property(x.raw(), XCB_PROP_MODE_REPLACE, window, property, type, 32,
                      static_cast<uint32_t>(words.size()), words.data());
}

}  // namespace

Result<std::unique_ptr<X11SelectionServer>> X11SelectionServer::start(const std::string& display,
                                                                      const std::string& domain) {
  auto x = X11Connection::open(display, domain);
  if (!x) return fail(x.error());
  return std::unique_ptr<X11SelectionServer>(new X11SelectionServer(std::move(*x)));
}

X11SelectionServer::X11SelectionServer(std::unique_ptr<X11Connection> connection)
    : x_(std::move(connection)),
      clipboard_(x_->atom("CLIPBOARD")),
      window_(x_->makeWindow(XCB_EVENT_MASK_PROPERTY_CHANGE)) {
  thread_ = std::thread([this] { serve(); });
}

X11SelectionServer::~X11SelectionServer() {
  stopping_ = true;
  wake_.signal();
  thread_.join();
}

bool X11SelectionServer::offer(std::string text, milliseconds limit) {
  return take(std::make_shared<const std::string>(std::move(text)), limit);
}

bool X11SelectionServer::clear(milliseconds limit) { return take(nullptr, limit); }

bool X11SelectionServer::take(Text text, milliseconds limit) {
  const std::lock_guard oneAtATime(taking_);
  std::future<bool> taken;
  {
    const std::lock_guard lock(mutex_);
    taken_ = {};
    taken = taken_.get_future();
    wanted_ = std::move(text);
  }
  wake_.signal();
  if (taken.wait_for(limit) == std::future_status::ready) return taken.get();
  const std::lock_guard lock(mutex_);
  wanted_.reset();  // a take-over that was reported as failed must not happen later
  return false;
}

std::optional<std::string> X11SelectionServer::ownText() {
  const std::lock_guard lock(mutex_);
  if (lost_ || !owned_) return std::nullopt;
  // The news that somebody else has taken it may still be on its way to the thread.
  auto cookie = xcb_get_selection_owner(x_->raw(), clipboard_);
  auto owner = x11Reply(xcb_get_selection_owner_reply(x_->raw(), cookie, nullptr));
  // Waiting for a reply also fetches events from the socket, which the thread's poll then misses.
  wake_.signal();
  if (!owner || owner->owner != window_) return std::nullopt;
  return *owned_;
}

int X11SelectionServer::fetches() {
  const std::lock_guard lock(mutex_);
  return fetches_;
}

bool X11SelectionServer::waitForFetch(int seen, std::chrono::nanoseconds limit) {
  std::unique_lock lock(mutex_);
  return fetched_.wait_for(lock, limit, [&] { return fetches_ > seen; });
}

void X11SelectionServer::serve() {
  while (true) {
    wake_.reset();
    if (stopping_) break;
    beginTaking();
    xcb_flush(x_->raw());
    while (auto event = x11Reply(xcb_poll_for_event(x_->raw()))) handle(*event);
    xcb_flush(x_->raw());
    if (x_->lost()) {
      lost_ = true;
      return;
    }
    std::erase_if(transfers_, [](const Transfer& t) { return t.patience.passed(); });
    const bool busy = !transfers_.empty();
    waitReadable({x_->descriptor(), wake_.get()}, busy ? transferPatience : milliseconds(-1));
  }
  saveToManager();
}

void X11SelectionServer::beginTaking() {
  const std::lock_guard lock(mutex_);
  // An own property change brings the server's present time, which the selection's owner must give.
  if (wanted_)
    xcb_change_property(x_->raw(), XCB_PROP_MODE_APPEND, window_, XCB_ATOM_WM_NAME, XCB_ATOM_STRING,
                        8, 0, nullptr);
}

void X11SelectionServer::finishTaking(xcb_timestamp_t now) {
  const std::lock_guard lock(mutex_);
  if (!wanted_) return;
  const Text text = *std::exchange(wanted_, std::nullopt);
  const xcb_window_t owner = text ? window_ : XCB_NONE;
  xcb_set_selection_owner(x_->raw(), owner, clipboard_, now);
  auto cookie = xcb_get_selection_owner(x_->raw(), clipboard_);
  auto reply = x11Reply(xcb_get_selection_owner_reply(x_->raw(), cookie, nullptr));
  const bool done = reply && reply->owner == owner;
  if (done) {
    owned_ = text;
    ownedSince_ = now;
    fetches_ = 0;
    for (Transfer& transfer : transfers_) transfer.counts = false;
  }
  taken_.set_value(done);
}

void X11SelectionServer::handle(const xcb_generic_event_t& event) {
  switch (event.response_type & 0x7f) {
    case XCB_PROPERTY_NOTIFY: {
      const auto& change = reinterpret_cast<const xcb_property_notify_event_t&>(event);
      if (change.window == window_ && change.atom == XCB_ATOM_WM_NAME) {
        finishTaking(change.time);
      } else if (change.state == XCB_PROPERTY_DELETE) {
        continueTransfer(change);
      }
      break;
    }
    case XCB_SELECTION_REQUEST:
      answer(reinterpret_cast<const xcb_selection_request_event_t&>(event));
      break;
    case XCB_SELECTION_CLEAR: {
      const auto& gone = reinterpret_cast<const xcb_selection_clear_event_t&>(event);
      const std::lock_guard lock(mutex_);
      // One for an earlier ownership may come late.
      if (gone.selection == clipboard_ && gone.time - ownedSince_ < (1u << 31)) owned_ = nullptr;
      break;
    }
    case XCB_SELECTION_NOTIFY:
      saved_ = true;  // only the clipboard manager is ever asked for anything
      break;
    default:
      break;  // errors too: a receiver that has gone needs nothing any more
  }
}

void X11SelectionServer::answer(const xcb_selection_request_event_t& request) {
  // Old clients leave the property out.
  const xcb_atom_t property = request.property == XCB_NONE ? request.target : request.property;
  const bool converted = request.selection == clipboard_ &&
                         (request.target == x_->atom("MULTIPLE")
                              ? convertMultiple(request.requestor, property)
                              : convert(request.requestor, request.target, property));
  xcb_selection_notify_event_t notify{};
  notify.response_type = XCB_SELECTION_NOTIFY;
  notify.time = request.time;
  notify.requestor = request.requestor;
  notify.selection = request.selection;
  notify.target = request.target;
  notify.property = converted ? property : static_cast<xcb_atom_t>(XCB_NONE);
  // The protocol's events are 32 bytes long.
  char padded[32] = {};
  std::copy_n(reinterpret_cast<const char*>(&notify), sizeof notify, padded);
  xcb_send_event(x_->raw(), 0, request.requestor, 0, padded);
}

bool X11SelectionServer::convert(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property) {
  Text text;
  {
    const std::lock_guard lock(mutex_);
    text = owned_;
  }
  if (!text) return false;
  if (target == x_->atom("TARGETS")) {
    putWords(*x_, requestor, property, XCB_ATOM_ATOM,
             {x_->atom("TARGETS"), x_->atom("TIMESTAMP"), x_->atom("MULTIPLE"),
              x_->atom("UTF8_STRING"), x_->atom("text/plain;charset=utf-8"), XCB_ATOM_STRING});
    return true;
  }
  if (target == x_->atom("TIMESTAMP")) {
    putWords(*x_, requestor, property, XCB_ATOM_INTEGER, {ownedSince_});
    return true;
  }
  if (!isTextTarget(*x_, target)) return false;
  if (target == XCB_ATOM_STRING) text = std::make_shared<const std::string>(latin1FromUtf8(*text));
  if (text->size() <= pieceSize) {
    put(*x_, requestor, property, target, *text);
    countFetch();
    return true;
  }
  const uint32_t wantDeletions = XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_change_window_attributes(x_->raw(), requestor, XCB_CW_EVENT_MASK, &wantDeletions);
  putWords(*x_, requestor, property, x_->atom("INCR"), {static_cast<uint32_t>(text->size())});
  transfers_.push_back({requestor, property, target, text, 0, true, Deadline(transferPatience)});
  return true;
}

bool X11SelectionServer::convertMultiple(xcb_window_t requestor, xcb_atom_t property) {
  const auto asked = x_->property(requestor, property);
  if (!asked) return false;
  auto pairs = asked->words();
  for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
    if (!convert(requestor, pairs[i], pairs[i + 1])) pairs[i + 1] = XCB_NONE;
  }
  putWords(*x_, requestor, property, x_->atom("ATOM_PAIR"), pairs);
  return true;
}

void X11SelectionServer::continueTransfer(const xcb_property_notify_event_t& taken) {
  const auto transfer = std::find_if(transfers_.begin(), transfers_.end(), [&](const Transfer& t) {
    return t.requestor == taken.window && t.property == taken.atom;
  });
  if (transfer == transfers_.end()) return;
  const auto piece = std::string_view(*transfer->bytes).substr(transfer->sent, pieceSize);
  // An empty piece says that it was the last one.
  put(*x_, transfer->requestor, transfer->property, transfer->type, piece);
  transfer->sent += piece.size();
  transfer->patience = Deadline(transferPatience);
  if (!piece.empty()) return;
  if (transfer->counts) countFetch();
  transfers_.erase(transfer);
}

void X11SelectionServer::countFetch() {
  const std::lock_guard lock(mutex_);
  ++fetches_;
  fetched_.notify_all();
}

void X11SelectionServer::saveToManager() {
  if (!ownText()) return;
  const xcb_atom_t manager = x_->atom("CLIPBOARD_MANAGER");
  auto cookie = xcb_get_selection_owner(x_->raw(), manager);
  auto owner = x11Reply(xcb_get_selection_owner_reply(x_->raw(), cookie, nullptr));
  if (!owner || owner->owner == XCB_NONE) return;
  const xcb_atom_t property = x_->atom("KESTRIN_SAVE");
  putWords(*x_, window_, property, XCB_ATOM_ATOM, {x_->atom("UTF8_STRING")});
  xcb_convert_selection(x_->raw(), window_, manager, x_->atom("SAVE_TARGETS"), property,
                        XCB_CURRENT_TIME);
  const Deadline deadline(managerPatience);
  while (!saved_) {
    auto event = x_->nextEvent(deadline);
    if (!event) return;
    handle(*event);
  }
}

}  // namespace kestrin
