#include "platform/unavailable.h"

namespace kestrin {
namespace {

constexpr int notAvailable = 1;

tl::unexpected<Error> missing(const char* domain, const std::string& reason) {
  return fail(domain, notAvailable, reason);
}

}  // namespace

Status UnavailableKeyMonitor::start(const std::string&, std::function<void(KeyEdge)>) {
  return missing("KeyMonitor", reason_);
}

Status UnavailableInput::chord(const std::vector<std::string>&, const std::string&) {
  return missing("SyntheticInput", reason_);
}
Result<Point> UnavailableInput::pointer() { return missing("SyntheticInput", reason_); }
Status UnavailableInput::movePointer(Point) { return missing("SyntheticInput", reason_); }
Status UnavailableInput::buttonDown(int) { return missing("SyntheticInput", reason_); }
Status UnavailableInput::buttonUp(int) { return missing("SyntheticInput", reason_); }

Status UnavailableWorkspace::activateWindow(uint64_t) { return missing("Workspace", reason_); }
Status UnavailableWorkspace::activateApplication(int) { return missing("Workspace", reason_); }
Result<Point> UnavailableWorkspace::screenSize() { return missing("Workspace", reason_); }
Status UnavailableWorkspace::launch(const std::string&) { return missing("Workspace", reason_); }
Status UnavailableWorkspace::quitApplication(const std::string&) {
  return missing("Workspace", reason_);
}
Status UnavailableWorkspace::open(const std::string&) { return missing("Workspace", reason_); }

Status UnavailablePasteboard::setString(const std::string&) {
  return missing("Pasteboard", reason_);
}
Status UnavailablePasteboard::clear() { return missing("Pasteboard", reason_); }

Result<BrowserTab> UnavailableBrowser::activeTab(int) { return missing("Browser", reason_); }
Result<std::string> UnavailableBrowser::pageText(int, size_t) {
  return missing("Browser", reason_);
}
Result<bool> UnavailableBrowser::selectTab(int, const std::string&, const std::string&) {
  return missing("Browser", reason_);
}

}  // namespace kestrin
