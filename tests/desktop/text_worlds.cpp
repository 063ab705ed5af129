#include "desktop/text_worlds.h"

#include <filesystem>
#include <fstream>

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

std::string QtWorld::role() {
  if (kind_ == "password") return "AXSecureTextField";
  return kind_ == "QTextEdit" || kind_ == "QPlainTextEdit" ? "AXTextArea" : "AXTextField";
}

void QtWorld::open(const std::string& text, TextRange selection) {
  start({std::string(KESTRIN_BINARY_DIR) + "/bin/qt_target", kind_});
  program->ask("set " + text);
  program->ask("select " + std::to_string(selection.location) + " " +
               std::to_string(selection.location + selection.length));
}

namespace {

std::string pageAddress(const std::string& page) {
  return "file://" + std::string(KESTRIN_SOURCE_DIR) + "/tests/desktop/pages/" + page;
}

}  // namespace

std::vector<std::string> BrowserWorld::command(PageMode mode) const {
  static int count = 0;
  const auto profile = scratchFile(family_ + std::to_string(++count));
  if (family_ == "firefox") {
    // First-run pages would open in tabs of their own.
    std::filesystem::create_directories(profile);
    std::ofstream(profile + "/user.js")
        << "user_pref('datareporting.policy.dataSubmissionEnabled', false);"
        << "user_pref('browser.aboutwelcome.enabled', false);"
        << "user_pref('termsofuse.bypassNotification', true);";
    return {"firefox-esr", "--no-remote", "--profile", profile};
  }
  std::vector<std::string> arguments{
      "chromium",      "--no-sandbox",           "--no-first-run",
      "--disable-gpu", "--password-store=basic", "--user-data-dir=" + profile};
  if (mode != PageMode::hidden) arguments.push_back("--force-renderer-accessibility");
  return arguments;
}

void BrowserWorld::openPages(const std::vector<std::string>& pages) {
  auto arguments = command(PageMode::tab);
  for (const auto& page : pages) arguments.push_back(pageAddress(page));
  start(arguments);
}

void BrowserWorld::openField(const std::string& field, PageMode mode) {
  auto arguments = command(mode);
  arguments.push_back((mode == PageMode::application ? "--app=" : "") +
                      pageAddress("fields.html#" + field));
  start(arguments);
}

void BrowserWorld::userTypes(const std::string& text) {
  eventually([&] {
    userPresses("shift");
    return this->text() != "no key yet";
  });
  userTypesKeys(text);
}

std::string BrowserWorld::text() {
  const auto title = activeTitle();
  const std::string start = "fields ";
  if (title.rfind(start, 0) != 0) return {};
  for (const std::string end : {" — Mozilla Firefox", " - Chromium"}) {
    if (const auto at = title.rfind(end); at != title.npos)
      return title.substr(start.size(), at - start.size());
  }
  return title.substr(start.size());
}

void EditorWorld::open(const std::string& text, TextRange selection) {
  static int count = 0;
  path_ = scratchFile("letter" + std::to_string(++count));
  writeFile(path_, text);
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
  std::string keys = "ctrl+Home";
  for (size_t n = steps(0, selection.location); n > 0; --n) keys += " Right";
  const int end = selection.location + selection.length;
  for (size_t n = steps(selection.location, end); n > 0; --n) keys += " shift+Right";
  userPresses(keys);
}

std::string EditorWorld::text() {
  const auto content = [&] {
    auto text = readFile(path_);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  };
  userPresses("ctrl+s");
  auto shown = accessibility().value(field()).value_or("");
  if (!shown.empty() && shown.back() == '\n') shown.pop_back();
  eventually([&] { return content() == shown; }, std::chrono::seconds(5));
  return content();
}

}  // namespace kestrin
