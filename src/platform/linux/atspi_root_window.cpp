#include "platform/linux/atspi_root_window.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace kestrin::atspi {

std::string addressOnRootWindow() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return {};
  std::string address;
  const Atom name = XInternAtom(display, "AT_SPI_BUS", True);
  Atom type = None;
  int format = 0;
  unsigned long count = 0;
  unsigned long rest = 0;
  unsigned char* data = nullptr;
  if (name != None &&
      XGetWindowProperty(display, DefaultRootWindow(display), name, 0, 1024, False, XA_STRING,
                         &type, &format, &count, &rest, &data) == Success) {
    if (type == XA_STRING && format == 8) address.assign(reinterpret_cast<char*>(data), count);
    if (data) XFree(data);
  }
  XCloseDisplay(display);
  return address;
}

}  // namespace kestrin::atspi
