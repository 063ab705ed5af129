#include "platform/linux/xdg_login_item.h"

#include <cerrno>

#include "platform/linux/application_id.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

/// One argument of an Exec line. The characters that a shell would read are escaped inside quotes,
/// and since the value is a string of the key file its backslashes are doubled once more.
std::string execArgument(const std::string& argument) {
  std::string quoted = "\"";
  for (const char c : argument) {
    if (c == '"' || c == '`' || c == '$') quoted += "\\\\";
    if (c == '\\') quoted += "\\\\\\";
    if (c == '%') quoted += '%';
    quoted += c;
  }
  return quoted + "\"";
}

}  // namespace

Status XdgLoginItem::setEnabled(bool enabled) {
  if (!enabled) {
    const auto removed = files_.remove(path());
    if (!removed && removed.error().code != ENOENT) return removed;
    return {};
  }
  if (program_.find_first_of("\n\r") != program_.npos) {
    return fail("LoginItem", 1, "A program in a folder with a line end in its name");
  }
  return files_.writeAtomic(path(),
                            "[Desktop Entry]\nType=Application\nName=Kestrin\n"
                            "Comment=Hold a key, speak, and the text arrives where you write\n"
                            "Exec=" +
                                execArgument(program_) + " --tray\nIcon=" + desktopApplicationId +
                                "\nTerminal=false\n"
                                "StartupNotify=false\nX-GNOME-Autostart-enabled=true\n");
}

bool XdgLoginItem::isEnabled() {
  const auto entry = files_.read(path());
  if (!entry) return false;
  // What desktops write when their own settings switch an entry off.
  for (const std::string& line : text::split(*entry, "\n")) {
    const std::string said = text::replaceAll(text::lower(line), " ", "");
    if (said == "hidden=true" || said == "x-gnome-autostart-enabled=false") return false;
  }
  return true;
}

}  // namespace kestrin
