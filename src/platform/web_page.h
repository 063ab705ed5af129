#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/dispatch/dispatch.h"
#include "platform/json/json.h"
#include "platform/result.h"

namespace kestrin {

/// A page of our own. It is shown at `localWebAddress`, a secure origin, which browsers ask for
/// before they give out the microphone; nothing listens there.
struct LocalWebPage {
  std::string html;
  /// Files whose scripts run before the page's own, in this order.
  std::vector<std::string> scriptFiles;
};
inline constexpr const char* localWebAddress = "https://localhost/";

struct WebNavigation {
  std::string url;
  bool isMainFrame = true;
};

struct WebLoadFailure {
  std::string url;
  std::string description;
};

struct WebPageOptions {
  std::string title;
  int width = 900;
  int height = 680;
  /// Microphone and camera for a local page; never for any other address.
  bool mayUseMedia = false;
};

/// Codes of errors in the domain "WebPage".
enum WebPageError {
  webCannotStart = 1,  ///< the program of the view could not be started
  webEnded = 2,        ///< it ended by itself, or was killed
  webCrashed = 3,      ///< what draws the page crashed
  webScript = 4,       ///< a script could not run: the page is gone
};

/// What a page tells. All run on the queue given to `open`; any may be empty. After `onClosed` or
/// `onEnded` nothing more comes, but for results of scripts.
struct WebPageHandlers {
  /// Whether the page may go there; absent: wherever it likes, but a local page only to itself. The
  /// page waits for the answer, and takes ten seconds without one for a no.
  std::function<bool(const WebNavigation&)> decidePolicy;
  std::function<void(const std::string& url)> onLoaded;
  /// Not for what `decidePolicy` refused.
  std::function<void(const WebLoadFailure&)> onFailed;
  /// `kestrin.send(value)` of a local page.
  std::function<void(const Json&)> onMessage;
  /// A line of the page's console; `level` is "info", "warning" or "error".
  std::function<void(const std::string& level, const std::string& text)> onConsole;
  /// The user closed the window.
  std::function<void()> onClosed;
  std::function<void(const Error&)> onEnded;
};

/// One window with a web page, apart from this process: a crash over there is told and harms
/// nothing else, and once the page is destroyed its process and its memory are gone. Destroy it on
/// the queue of its handlers; none runs afterwards. Nothing here waits.
class WebPage {
 public:
  virtual ~WebPage() = default;
  virtual void load(const std::string& url) = 0;
  virtual void load(const LocalWebPage& page) = 0;
  /// `completion` (may be empty) gets the value of the last expression; null where it has no JSON
  /// form or the script threw.
  virtual void run(const std::string& script,
                   std::function<void(Result<Json>)> completion = {}) = 0;
  /// In front of the other windows.
  virtual void raise() = 0;
};

/// Opens pages; nothing is loaded or started before the first.
class WebPages {
 public:
  virtual ~WebPages() = default;
  /// What keeps the page from coming up is told by `onEnded`.
  virtual std::unique_ptr<WebPage> open(WebPageOptions options, QueueRef queue,
                                        WebPageHandlers handlers) = 0;
};

}  // namespace kestrin
