#include "platform/simulated/simulated_browser.h"

#include "platform/text/text.h"

namespace kestrin {

Result<std::vector<SimulatedWindow*>> SimulatedBrowser::windows(int pid, const char* site) {
  if (faultDue(faults_, site)) return fail("Browser", 3, std::string("No answer (") + site + ")");
  std::vector<SimulatedWindow*> found;
  for (auto id : desktop_.stacking()) {
    const auto* owner = desktop_.applicationOfWindow(id);
    auto* window = desktop_.window(id);
    if (owner && owner->pid == pid && window && window->activeTab < window->tabs.size())
      found.push_back(window);
  }
  if (found.empty()) return fail("Browser", 2, "The program shows no page");
  return found;
}

Result<BrowserTab> SimulatedBrowser::activeTab(int pid) {
  auto found = windows(pid, "browser.activeTab");
  if (!found) return fail(found.error());
  const auto& tab = found->front()->tabs[found->front()->activeTab];
  return BrowserTab{tab.url, tab.title};
}

Result<std::string> SimulatedBrowser::pageText(int pid, size_t limit) {
  auto found = windows(pid, "browser.pageText");
  if (!found) return fail(found.error());
  return text::prefix(found->front()->tabs[found->front()->activeTab].text, limit);
}

Result<bool> SimulatedBrowser::selectTab(int pid, const std::string& urlToken,
                                         const std::string& title) {
  auto found = windows(pid, "browser.selectTab");
  if (!found) return fail(found.error());
  for (auto* window : *found) {
    for (size_t i = 0; i < window->tabs.size(); ++i) {
      const auto& tab = window->tabs[i];
      const bool fits = urlToken.empty() ? tab.title == title : text::contains(tab.url, urlToken);
      if (!fits) continue;
      window->activeTab = i;
      desktop_.record("tab", tab.title);
      return true;
    }
  }
  return false;
}

}  // namespace kestrin
