#include "platform/linux/x11_connection.h"

#include <cstring>

namespace kestrin {

Result<std::unique_ptr<X11Connection>> X11Connection::open(const std::string& display,
                                                           const std::string& domain) {
  const char* name = display.empty() ? std::getenv("DISPLAY") : display.c_str();
  if (!name || !*name)
    return fail(domain, 1,
                "There is no X display (DISPLAY is not set); this needs X11 or XWayland");
  int number = 0;
  auto opened = std::make_unique<X11Connection>();
  opened->connection_.reset(xcb_connect(name, &number));
  if (opened->lost())
    return fail(domain, 1, std::string("The X display ") + name + " cannot be reached");
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(opened->raw()));
  for (int i = 0; i < number && screens.rem > 1; ++i) xcb_screen_next(&screens);
  opened->screen_ = screens.data;
  return opened;
}

xcb_atom_t X11Connection::atom(const std::string& name) {
  auto [entry, isNew] = atoms_.try_emplace(name, XCB_ATOM_NONE);
  if (isNew) {
    auto cookie = xcb_intern_atom(raw(), 0, static_cast<uint16_t>(name.size()), name.c_str());
    if (auto reply = x11Reply(xcb_intern_atom_reply(raw(), cookie, nullptr)))
      entry->second = reply->atom;
  }
  return entry->second;
}

std::string X11Connection::atomName(xcb_atom_t atom) {
  auto reply = x11Reply(xcb_get_atom_name_reply(raw(), xcb_get_atom_name(raw(), atom), nullptr));
  if (!reply) return {};
  return {xcb_get_atom_name_name(reply.get()),
          static_cast<size_t>(xcb_get_atom_name_name_length(reply.get()))};
}

std::vector<uint32_t> X11Connection::Property::words() const {
  if (format != 32) return {};
  std::vector<uint32_t> words(bytes.size() / 4);
  std::memcpy(words.data(), bytes.data(), words.size() * 4);
  return words;
}

std::optional<X11Connection::Property> X11Connection::property(xcb_window_t window, xcb_atom_t name,
                                                               bool remove) {
  const uint32_t wordLimit = 16u << 20;  // 64 MB: nobody dictates more
  auto cookie = xcb_get_property(raw(), remove, window, name, XCB_ATOM_ANY, 0, wordLimit);
  auto reply = x11Reply(xcb_get_property_reply(raw(), cookie, nullptr));
  if (!reply || reply->type == XCB_ATOM_NONE) return std::nullopt;
  const auto* data = static_cast<const char*>(xcb_get_property_value(reply.get()));
  const auto size = static_cast<size_t>(xcb_get_property_value_length(reply.get()));
  return Property{reply->type, reply->format, std::string(data, size)};
}

std::string X11Connection::textProperty(xcb_window_t window, const char* name) {
  auto found = property(window, atom(name));
  return found && found->format == 8 ? found->bytes : std::string();
}

std::vector<uint32_t> X11Connection::wordsProperty(xcb_window_t window, const char* name) {
  auto found = property(window, atom(name));
  return found ? found->words() : std::vector<uint32_t>();
}

xcb_window_t X11Connection::makeWindow(uint32_t eventMask) {
  const xcb_window_t window = xcb_generate_id(raw());
  xcb_create_window(raw(), XCB_COPY_FROM_PARENT, window, root(), -10, -10, 1, 1, 0,
                    XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK,
                    &eventMask);
  return window;
}

xcb_timestamp_t X11Connection::serverTime(std::chrono::milliseconds limit) {
  const xcb_window_t window = makeWindow(XCB_EVENT_MASK_PROPERTY_CHANGE);
  xcb_change_property(raw(), XCB_PROP_MODE_APPEND, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 0,
                      nullptr);
  const Deadline deadline(limit);
  while (auto event = nextEvent(deadline)) {
    if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY) continue;
    const auto* notify = reinterpret_cast<const xcb_property_notify_event_t*>(event.get());
    if (notify->window != window) continue;
    xcb_destroy_window(raw(), window);
    return notify->time;
  }
  return XCB_CURRENT_TIME;
}

X11Reply<xcb_generic_event_t> X11Connection::nextEvent(const Deadline& deadline) {
  xcb_flush(raw());
  while (true) {
    if (auto event = x11Reply(xcb_poll_for_event(raw()))) return event;
    if (lost() || deadline.passed()) return nullptr;
    waitReadable({descriptor()}, deadline.left());
  }
}

bool X11Connection::roundTrip() {
  return x11Reply(xcb_get_input_focus_reply(raw(), xcb_get_input_focus(raw()), nullptr)) != nullptr;
}

}  // namespace kestrin
