// Measures which fields of real programs take text in the background and which take a paste, prints
// the table of docs/targets.md, and fails when the deny list says otherwise. Run it in a desktop
// session: scripts/targets-table.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>

#include "desktop/text_worlds.h"
#include "dictation/web_editor_rules.h"
#include "platform/linux/x11_pasteboard.h"
#include "platform/linux/x11_synthetic_input.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;

/// A terminal that copies what is typed into a file.
class TerminalWorld : public RealWorld {
 public:
  explicit TerminalWorld(std::vector<std::string> command) : command_(std::move(command)) {}
  std::string role() override { return "AXTerminal"; }
  void open(const std::string&, TextRange) override {
    static int count = 0;
    path_ = scratchFile("terminal" + std::to_string(++count));
    auto arguments = command_;
    // Unbuffered and without the line discipline: each byte arrives as it is pasted.
    arguments.push_back("sh -c 'stty raw -echo; cat > " + path_ + "'");
    start(arguments);
    eventually([&] { return std::ifstream(path_).good(); }, 10s);
  }
  void userTypes(const std::string& text) override { userTypesKeys(text); }
  std::string text() override {
    auto text = readFile(path_);
    for (const std::string bracket : {"\033[200~", "\033[201~"})
      text = text::replaceAll(text, bracket, "");
    return text;
  }

 private:
  std::vector<std::string> command_;
  std::string path_;
};

struct Row {
  std::string program;
  std::string package;  ///< whose version is printed; empty: the Qt that the tests were built with
  std::string desktopId;  ///< as the application would be known to Kestrin
  std::string field;
  std::function<std::unique_ptr<RealWorld>()> open;
};

template <class World, class... Arguments>
std::function<std::unique_ptr<RealWorld>()> opened(Arguments... arguments) {
  return [=]() -> std::unique_ptr<RealWorld> {
    auto world = std::make_unique<World>(arguments...);
    world->open("", {0, 0});
    return world;
  };
}

std::function<std::unique_ptr<RealWorld>()> page(const char* family, const char* field,
                                                 PageMode mode) {
  return [=]() -> std::unique_ptr<RealWorld> {
    auto world = std::make_unique<BrowserWorld>(family);
    world->openField(field, mode);
    return world;
  };
}

using Command = std::vector<std::string>;

std::vector<Row> rows() {
  return {
      {"mousepad", "mousepad", "org.xfce.mousepad", "text",
       opened<EditorWorld>(Command{"mousepad", "--disable-server"})},
      {"gnome-text-editor", "gnome-text-editor", "org.gnome.texteditor", "text",
       opened<EditorWorld>(Command{"gnome-text-editor", "--standalone"})},
      {"featherpad (Qt 5)", "featherpad", "featherpad", "text",
       opened<EditorWorld>(Command{"featherpad", "--standalone"})},
      {"Qt 6 test window", "libqt6widgets6", "", "QTextEdit", opened<QtWorld>("QTextEdit")},
      {"Qt 6 test window", "libqt6widgets6", "", "QPlainTextEdit",
       opened<QtWorld>("QPlainTextEdit")},
      {"Qt 6 test window", "libqt6widgets6", "", "QLineEdit", opened<QtWorld>("QLineEdit")},
      {"Qt 6 test window", "libqt6widgets6", "", "password", opened<QtWorld>("password")},
      {"Firefox", "firefox-esr", "firefox-esr", "input", page("firefox", "input", PageMode::tab)},
      {"Firefox", "firefox-esr", "firefox-esr", "textarea",
       page("firefox", "textarea", PageMode::tab)},
      {"Firefox", "firefox-esr", "firefox-esr", "contenteditable",
       page("firefox", "editable", PageMode::tab)},
      {"Firefox", "firefox-esr", "firefox-esr", "password",
       page("firefox", "password", PageMode::tab)},
      {"Chromium, accessibility forced", "chromium", "chromium", "input",
       page("chromium", "input", PageMode::tab)},
      {"Chromium, accessibility forced", "chromium", "chromium", "textarea",
       page("chromium", "textarea", PageMode::tab)},
      {"Chromium, accessibility forced", "chromium", "chromium", "contenteditable",
       page("chromium", "editable", PageMode::tab)},
      {"Chromium, accessibility forced", "chromium", "chromium", "password",
       page("chromium", "password", PageMode::tab)},
      {"Chromium as started by the user", "chromium", "chromium", "textarea",
       page("chromium", "textarea", PageMode::hidden)},
      {"Electron-like page (chromium --app)", "chromium", "chromium", "textarea",
       page("chromium", "textarea", PageMode::application)},
      {"Electron-like page (chromium --app)", "chromium", "chromium", "contenteditable",
       page("chromium", "editable", PageMode::application)},
      {"xterm", "xterm", "debian-xterm", "terminal", opened<TerminalWorld>(Command{"xterm", "-e"})},
      {"lxterminal (VTE)", "lxterminal", "lxterminal", "terminal",
       opened<TerminalWorld>(Command{"lxterminal", "--no-remote", "-e"})},
  };
}

struct Measured {
  std::string toolkit, role, insert, paste;
  bool inserts = false;
};

/// What the program itself does with an insert, whatever Kestrin would ask of it.
std::string rawInsert(RealWorld& world, const AxElement& field, bool& works) {
  const std::string piece = "inserted";
  const auto before = world.text();
  const auto answer = DesktopBackends::shared().bus()->call<bool>(
      field, atspi::editableInterface, "InsertText", atspi::Budget(2s), int32_t{0}, piece,
      static_cast<int32_t>(piece.size()));
  if (!answer) return "no interface";
  works = world.eventually([&] { return text::contains(world.text(), piece); }, 2s);
  if (works) return "yes";
  return *answer ? "no (says true, changes nothing)" : "no (says false)";
}

std::string paste(RealWorld& world, bool terminal) {
  static X11Pasteboard pasteboard;
  static X11SyntheticInput input(std::make_shared<SyntheticEdges>());
  static int count = 0;
  const auto piece = "pasted" + std::to_string(++count);
  if (!pasteboard.setString(piece)) return "no clipboard";
  const int seen = pasteboard.fetches();
  input.chord(
      terminal ? std::vector<std::string>{"control", "shift"} : std::vector<std::string>{"control"},
      "v");
  const bool fetched = pasteboard.waitForFetch(seen, 3s);
  if (world.eventually([&] { return text::contains(world.text(), piece); }, 10s)) return "yes";
  return fetched ? "no (fetched, not shown)" : "no";
}

Measured measure(RealWorld& world) {
  auto& ax = world.accessibility();
  Measured result{"not on the bus", "none", "no (nothing to write to)", "", false};
  AxElement field;
  world.eventually(
      [&] {
        field = ax.focusedElement(world.pid()).value_or(AxElement{});
        const auto role = ax.role(field).value_or("");
        return role.rfind("AXText", 0) == 0 || role == "AXSecureTextField" || role == "AXTerminal";
      },
      15s);
  // A window that shows nothing on the bus may still be about to open its page.
  world.eventually([&] { return !activeTitle().empty(); }, 15s);
  if (field.valid()) {
    result.toolkit = ax.toolkit(field).value_or("");
    result.role = ax.role(field).value_or("");
    if (result.role == "AXSecureTextField") {
      result.insert = result.paste = "refused by Kestrin";
      return result;
    }
    result.insert = rawInsert(world, field, result.inserts);
  }
  result.paste = paste(world, dynamic_cast<TerminalWorld*>(&world) != nullptr);
  return result;
}

int printTable() {
  int contradictions = 0;
  std::printf(
      "# Where dictated text can go\n\n"
      "Measured by `scripts/targets-table` on the programs that Debian has: text inserted into the "
      "field through "
      "the accessibility bus, and pasted through the clipboard with Ctrl+V (Ctrl+Shift+V in "
      "terminals); each "
      "time the field was read back another way than it was written. \"Kestrin\" is what a "
      "dictation does there.\n\n"
      "| Program | Version | Toolkit | Field | Role | Background insert | Paste | Kestrin |\n"
      "|---|---|---|---|---|---|---|---|\n");
  for (const auto& row : rows()) {
    auto world = row.open();
    const auto measured = measure(*world);
    const bool denied =
        isLikelyWebEditor({measured.role, measured.toolkit, row.desktopId, row.program});
    const bool pastes = measured.paste == "yes";
    const char* use = measured.role == "AXSecureTextField" ? "refuses, saying so"
                      : measured.inserts && !denied        ? "background insert"
                      : pastes                             ? "paste at the end"
                                                           : "clipboard, saying so";
    const auto version = shell("dpkg-query -W -f '${Version}' " + row.package);
    std::printf("| %s | %s | %s | %s | %s | %s | %s | %s |\n", row.program.c_str(), version.c_str(),
                measured.toolkit.c_str(), row.field.c_str(), measured.role.c_str(),
                measured.insert.c_str(), measured.paste.c_str(), use);
    std::fflush(stdout);
    const bool isTerminal = dynamic_cast<TerminalWorld*>(world.get()) != nullptr;
    const bool isPassword = measured.role == "AXSecureTextField";
    if (measured.inserts == denied && !isPassword && !isTerminal) {
      std::fprintf(stderr, "targets-table: the deny list is wrong about %s, %s\n",
                   row.program.c_str(), row.field.c_str());
      ++contradictions;
    }
  }
  return contradictions ? 1 : 0;
}

}  // namespace
}  // namespace kestrin

int main() { return kestrin::printTable(); }
