#include "desktop/text_worlds.h"

#include <fstream>
#include <sstream>
#include <unistd.h>

#include "platform/linux/atspi_accessibility.h"

namespace kestrin {

DesktopBackends::DesktopBackends()
    : dispatch_(ThreadsDispatch::make()),
      bus_(std::make_shared<atspi::AtspiBus>()),
      accessibility_(makeAtspiAccessibility(*dispatch_, bus_)) {}

DesktopBackends& DesktopBackends::shared() {
  static DesktopBackends backends;
  return backends;
}

void QtWorld::open(const std::string& text, TextRange selection) {
  start({std::string(KESTRIN_BINARY_DIR) + "/bin/qt_target", kind_});
  program->ask("set " + text);
  program->ask("select " + std::to_string(selection.location) + " " +
               std::to_string(selection.location + selection.length));
}

void EditorWorld::open(const std::string& text, TextRange selection) {
  static int count = 0;
  const char* folder = std::getenv("DESKTOP_SESSION_DIR");
  path_ = std::string(folder ? folder : "/tmp") + "/letter" + std::to_string(getpid()) + "-" +
          std::to_string(++count);
  std::ofstream(path_) << text;
  auto arguments = command_;
  arguments.push_back(path_);
  const auto shown = [&] {
    const auto focused = accessibility().focusedElement(pid());
    return focused && accessibility().value(*focused).value_or("") == text;
  };
  // The first start in a new home leaves some editors without a focus; their second one is well.
  for (int attempt = 0; attempt < 3; ++attempt) {
    program.reset();
    start(arguments);
    if (eventually(shown, std::chrono::seconds(8))) break;
  }
  // An arrow key moves by characters, the range counts UTF-16 units.
  const auto steps = [&](int from, int to) {
    return text::characterCount(text::utf16Slice(text, from, to));
  };
  std::vector<std::string> keys{"ctrl+Home"};
  keys.insert(keys.end(), steps(0, selection.location), "Right");
  keys.insert(keys.end(), steps(selection.location, selection.location + selection.length),
              "shift+Right");
  userPresses(keys);
}

std::string EditorWorld::text() {
  const auto content = [&] {
    std::ostringstream read;
    read << std::ifstream(path_).rdbuf();
    auto text = read.str();
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  };
  userPresses({"ctrl+s"});
  const auto shown = accessibility().value(field()).value_or("");
  eventually([&] { return content() == shown; });
  return content();
}

}  // namespace kestrin
