#include "platform/simulated/simulated_web_pages.h"

#include <utility>

namespace kestrin {

class SimulatedWebPages::Handle final : public WebPage {
 public:
  Handle(PageRef page, FaultPlan* faults) : page_(std::move(page)), faults_(faults) {}
  ~Handle() override { page_->handlers_.reset(); }

  void load(const std::string& url) override {
    page_->address = url;
    page_->navigate(url);
  }
  void load(const LocalWebPage& page) override {
    page_->local = page;
    page_->loaded(localWebAddress);
  }
  void run(const std::string& script, std::function<void(Result<Json>)> completion) override {
    const bool gone = faultDue(faults_, "web.run") || !page_->isOpen();
    if (!gone) page_->scripts.push_back(script);
    page_->queue_->post([page = page_, script, gone, completion = std::move(completion)] {
      if (!completion || !page->handlers_) return;
      if (gone) return completion(fail("WebPage", webScript, "The page is gone"));
      completion(page->onScript ? page->onScript(script) : Json());
    });
  }
  void raise() override { ++page_->raised; }

 private:
  const PageRef page_;
  FaultPlan* faults_;
};

template <class F>
void SimulatedWebPages::Page::tell(F f) {
  queue_->post([page = self_.lock(), f = std::move(f)] {
    const auto handlers = page->handlers_;
    if (handlers && !page->over_) f(*page, *handlers);
  });
}

void SimulatedWebPages::Page::navigate(const std::string& url) {
  tell([url](Page& page, const WebPageHandlers& h) {
    const bool allowed = !h.decidePolicy || h.decidePolicy({url, true});
    (allowed ? page.visited : page.refused).push_back(url);
  });
}

void SimulatedWebPages::Page::loaded(const std::string& url) {
  tell([url](Page&, const WebPageHandlers& h) {
    if (h.onLoaded) h.onLoaded(url);
  });
}

void SimulatedWebPages::Page::failLoad(const std::string& url, const std::string& description) {
  tell([url, description](Page&, const WebPageHandlers& h) {
    if (h.onFailed) h.onFailed({url, description});
  });
}

void SimulatedWebPages::Page::send(const Json& message) {
  tell([message](Page&, const WebPageHandlers& h) {
    if (h.onMessage) h.onMessage(message);
  });
}

void SimulatedWebPages::Page::closeWindow() {
  tell([](Page& page, const WebPageHandlers& h) {
    page.over_ = true;
    if (h.onClosed) h.onClosed();
  });
}

void SimulatedWebPages::Page::end(WebPageError code) {
  tell([code](Page& page, const WebPageHandlers& h) {
    page.over_ = true;
    if (h.onEnded) h.onEnded({"WebPage", code, "The web page ended"});
  });
}

std::unique_ptr<WebPage> SimulatedWebPages::open(WebPageOptions options, QueueRef queue,
                                                 WebPageHandlers handlers) {
  auto page = std::make_shared<Page>();
  page->options = std::move(options);
  page->queue_ = std::move(queue);
  page->handlers_ = std::make_shared<const WebPageHandlers>(std::move(handlers));
  page->self_ = page;
  pages_.push_back(page);
  if (faultDue(faults_, "web.open")) page->end(webCannotStart);
  return std::make_unique<Handle>(std::move(page), faults_);
}

}  // namespace kestrin
