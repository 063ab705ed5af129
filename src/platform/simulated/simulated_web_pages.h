#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/simulated/fault_plan.h"
#include "platform/web_page.h"

namespace kestrin {

/// Web pages without a browser: a test says where a page goes and what happens to it, and sees what
/// was asked of it. Everything that a page tells is posted to its queue, as the real one does. Not
/// for more than one thread of control. Sites: "web.open" (its program cannot be started),
/// "web.run" (the page is gone).
class SimulatedWebPages final : public WebPages {
 public:
  explicit SimulatedWebPages(FaultPlan* faults = nullptr) : faults_(faults) {}

  class Page {
   public:
    WebPageOptions options;
    std::string address;  ///< that was to be loaded last
    LocalWebPage local;   ///< likewise
    std::vector<std::string> scripts;
    std::vector<std::string> visited, refused;  ///< by the policy
    int raised = 0;
    /// What scripts give; null without one.
    std::function<Json(const std::string& script)> onScript;

    /// False once it was destroyed, closed or ended.
    bool isOpen() const { return handlers_ != nullptr && !over_; }
    void navigate(const std::string& url);
    void loaded(const std::string& url);
    void failLoad(const std::string& url, const std::string& description);
    void send(const Json& message);
    void closeWindow();
    void end(WebPageError code);

   private:
    friend class SimulatedWebPages;
    template <class F>
    void tell(F f);

    QueueRef queue_;
    std::shared_ptr<const WebPageHandlers> handlers_;
    std::weak_ptr<Page> self_;
    bool over_ = false;
  };
  using PageRef = std::shared_ptr<Page>;

  std::unique_ptr<WebPage> open(WebPageOptions options, QueueRef queue,
                                WebPageHandlers handlers) override;

  /// All that were ever opened.
  const std::vector<PageRef>& pages() const { return pages_; }
  /// The one opened last; null before.
  PageRef last() const { return pages_.empty() ? nullptr : pages_.back(); }

 private:
  class Handle;
  FaultPlan* faults_;
  std::vector<PageRef> pages_;
};

}  // namespace kestrin
