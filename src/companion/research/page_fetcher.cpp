#include "companion/research/page_fetcher.h"

#include <utility>

#include "platform/text/text.h"

namespace kestrin::research {
namespace {

constexpr const char* domain = "PageFetcher";

bool isText(const std::string& contentType) {
  const std::string type = text::lower(text::trim(contentType.substr(0, contentType.find(';'))));
  return type == "text/html" || type == "application/xhtml+xml" || type == "text/plain" ||
         type == "text/markdown";
}

/// One page on its way. On the session's queue, but for `task`.
struct Fetching {
  std::function<void(Result<FetchedPage>)> completion;
  FetchedPage page;
  std::weak_ptr<HttpTask> task;

  void end(Result<FetchedPage> outcome) {
    if (const auto tell = std::exchange(completion, nullptr)) tell(std::move(outcome));
  }
  /// What follows is of no use.
  void stop(Result<FetchedPage> outcome) {
    end(std::move(outcome));
    if (const auto running = task.lock()) running->cancel();
  }
};

std::string headerIn(const HttpHeaders& headers, const char* name) {
  return HttpResponse{0, headers, {}}.header(name);
}

}  // namespace

PageFetcher::PageFetcher(Http& http, std::function<bool(std::string_view)> admits)
    : session_(http.makeSession({.requestTimeout = patience,
                                 .resourceTimeout = patience,
                                 .admitsAddress = std::move(admits)})) {}

HttpTaskRef PageFetcher::fetch(const std::string& url,
                               std::function<void(Result<FetchedPage>)> completion) {
  const auto fetching = std::make_shared<Fetching>();
  fetching->completion = std::move(completion);
  HttpRequest request;
  request.url = url;
  request.setHeader("Accept", "text/html,application/xhtml+xml,text/plain;q=0.8");
  request.setHeader("Accept-Language", "en,*;q=0.5");
  // Some servers refuse requests that name no program.
  request.setHeader("User-Agent", "Mozilla/5.0 (X11; Linux x86_64) kestrin-companion");
  HttpStreamHandlers handlers;
  handlers.onResponse = [fetching](int status, const HttpHeaders& headers) {
    if (status / 100 == 3) return;
    fetching->page.contentType = headerIn(headers, "content-type");
    if (status / 100 != 2) {
      return fetching->stop(
          fail(domain, 1, "The page answered with status " + std::to_string(status)));
    }
    if (!isText(fetching->page.contentType))
      fetching->stop(fail(domain, 2, "The page is no text: " + fetching->page.contentType));
  };
  handlers.onData = [fetching](std::string_view bytes) {
    Bytes& body = fetching->page.body;
    body += bytes.substr(0, mostBytes - body.size());
    if (body.size() == mostBytes) fetching->stop(std::move(fetching->page));
  };
  handlers.onComplete = [fetching](const std::optional<Error>& error) {
    // A slow page that gave something is worth what it gave.
    if (error && fetching->page.body.empty()) return fetching->end(fail(*error));
    fetching->end(std::move(fetching->page));
  };
  const auto task = session_->stream(std::move(request), std::move(handlers));
  fetching->task = task;
  return task;
}

}  // namespace kestrin::research
