#include "platform/linux/atspi_root_window.h"

#include <cstdlib>
#include <memory>
#include <xcb/xcb.h>

namespace kestrin::atspi {

std::string addressOnRootWindow() {
  const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> display(
      xcb_connect(nullptr, nullptr), xcb_disconnect);
  // Without a display the connection is an empty shell that must not be asked for its screens.
  if (xcb_connection_has_error(display.get())) return {};
  const auto screen = xcb_setup_roots_iterator(xcb_get_setup(display.get()));
  if (screen.rem == 0) return {};
  const char name[] = "AT_SPI_BUS";
  const auto asked = xcb_intern_atom(display.get(), 1, sizeof name - 1, name);
  const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
      xcb_intern_atom_reply(display.get(), asked, nullptr), std::free);
  if (!atom || atom->atom == XCB_ATOM_NONE) return {};
  const auto wanted =
      xcb_get_property(display.get(), 0, screen.data->root, atom->atom, XCB_ATOM_STRING, 0, 1024);
  const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> property(
      xcb_get_property_reply(display.get(), wanted, nullptr), std::free);
  if (!property || property->format != 8) return {};
  return {static_cast<const char*>(xcb_get_property_value(property.get())),
          static_cast<size_t>(xcb_get_property_value_length(property.get()))};
}

}  // namespace kestrin::atspi
