#include "platform/linux/atspi_browser.h"

#include <algorithm>
#include <map>

#include "platform/linux/atspi_bus.h"
#include "platform/linux/atspi_focus.h"
#include "platform/linux/atspi_page_text.h"
#include "platform/linux/atspi_toolkits.h"
#include "platform/text/text.h"

namespace kestrin {
namespace atspi {
namespace {

struct Page {
  AxElement document;
  std::string url;
  std::string title;
};

Error browserError(Error error) {
  error.domain = "Browser";
  return error;
}

/// "Page — Mozilla Firefox", "Page - Chromium": the page's part of a window title.
std::string pageTitle(const std::string& windowTitle) {
  for (const std::string separator : {" — ", " - "}) {
    const auto at = windowTitle.rfind(separator);
    if (at != windowTitle.npos) return windowTitle.substr(0, at);
  }
  return windowTitle;
}

class AtspiBrowser final : public Browser {
 public:
  explicit AtspiBrowser(std::shared_ptr<AtspiBus> bus) : bus_(std::move(bus)), focus_(*bus_) {}

  Result<BrowserTab> activeTab(int pid) override {
    const Budget budget(callLimit);
    auto window = focus_.window(pid, budget);
    if (!window) return fail(browserError(window.error()));
    const auto windowTitle = pageTitle(nameOf(*window, budget));
    const auto shown = pages(*window, {State::showing}, budget);
    if (!shown.empty()) {
      const auto& page = shown.front();
      // A page that is still loading has no title of its own yet.
      return BrowserTab{page.url, page.title.empty() ? windowTitle : page.title};
    }
    if (windowTitle.empty()) return fail("Browser", dbus::unreachable, "The browser shows no page");
    return BrowserTab{"", windowTitle};
  }

  Result<std::string> pageText(int pid, size_t limit) override {
    const Budget budget(callLimit);
    auto window = focus_.window(pid, budget);
    if (!window) return fail(browserError(window.error()));
    const auto shown = pages(*window, {State::showing}, budget);
    if (shown.empty()) {
      return fail("Browser", dbus::refused,
                  "The browser hides its pages: start it with --force-renderer-accessibility");
    }
    return atspi::pageText(*bus_, shown.front().document, limit, budget);
  }

  Result<bool> selectTab(int pid, const std::string& urlToken, const std::string& title) override {
    const Budget budget(callLimit);
    auto windows = focus_.activeWindows(pid, budget);
    if (!windows) return fail(browserError(windows.error()));
    const auto fits = [&](const Page& page) {
      return !urlToken.empty() && text::contains(page.url, urlToken);
    };
    for (const auto& window : *windows) {
      const auto shown = pages(window, {State::showing}, budget);
      if (!shown.empty() && fits(shown.front())) return true;
      auto tabs = bus_->matches(window, {}, {rolePageTab}, 0, budget);
      if (!tabs) continue;
      // Firefox keeps the pages of its other tabs in the tree too: an address then leads to a
      // title.
      auto wanted = title;
      for (const auto& page : pages(window, {}, budget)) {
        if (fits(page)) wanted = page.title;
      }
      for (const auto& tab : *tabs) {
        if (isTabOf(tab, wanted, budget) && select(tab, budget)) return true;
      }
    }
    return false;
  }

 private:
  std::string nameOf(const AxElement& element, const Budget& budget) {
    return bus_->property<std::string>(element, accessibleInterface, "Name", budget).value_or("");
  }

  /// Documents of the window in its own order, those without an address (panels of the browser)
  /// left out.
  std::vector<Page> pages(const AxElement& window, const std::vector<State>& states,
                          const Budget& budget) {
    auto documents = bus_->matches(window, states, {roleDocumentWeb, roleDocumentFrame}, 0, budget);
    std::vector<Page> found;
    if (!documents) return found;
    for (const auto& document : *documents) {
      auto attributes = bus_->call<std::map<std::string, std::string>>(
          document, "org.a11y.atspi.Document", "GetAttributes", budget);
      if (!attributes) continue;
      Page page{document, (*attributes)["DocURL"], (*attributes)["Title"]};
      if (page.url.empty()) page.url = (*attributes)["URI"];
      if (page.title.empty()) page.title = nameOf(document, budget);
      if (!page.url.empty()) found.push_back(std::move(page));
    }
    return found;
  }

  bool isTabOf(const AxElement& tab, const std::string& title, const Budget& budget) {
    if (title.empty()) return false;
    const auto name = nameOf(tab, budget);
    // Chromium appends what it has to say about the tab: "Page - Memory usage - 23 MB".
    return name == title || name.rfind(title + " - ", 0) == 0;
  }

  bool select(const AxElement& tab, const Budget& budget) {
    return bus_->call<bool>(tab, "org.a11y.atspi.Action", "DoAction", budget, int32_t{0})
        .value_or(false);
  }

  std::shared_ptr<AtspiBus> bus_;
  FocusTracker focus_;
};

}  // namespace
}  // namespace atspi

std::unique_ptr<Browser> makeAtspiBrowser(std::shared_ptr<atspi::AtspiBus> bus) {
  return std::make_unique<atspi::AtspiBrowser>(std::move(bus));
}

}  // namespace kestrin
