#include "calls/call_page.h"

#include <utility>

namespace kestrin {
namespace {

constexpr const char* source = "Calls";
constexpr int pageWidth = 960, pageHeight = 640;

}  // namespace

CallPage::CallPage(CallPageServices services, MediaPageHost host, const MediaPageValues& values,
                   const std::string& title)
    : services_(std::move(services)) {
  WebPageOptions options;
  options.title = title;
  options.width = pageWidth;
  options.height = pageHeight;
  options.mayUseMedia = true;
  page_ = services_.webPages.open(options, services_.dispatch.mainQueue(), handlers());
  LocalWebPage local{mediaPage(host, values), {}};
  if (values.token.starts_with(ownRoomTokenPrefix)) {
    relay_ = std::make_unique<RoomRelay>(
        services_.dispatch, services_.session, services_.random, services_.backend, values.roomName,
        values.token, [this](const Json& news) {
          // JSON is a script's value as it stands, but for two line ends.
          page_->run("kestrinRoom.receive(JSON.parse('" + escapeForScript(news.dump()) + "'))");
        });
  } else if (services_.mediaLibrary.empty()) {
    services_.dispatch.mainQueue()->post(
        lifetime_.guard([this] { failed("The media library is not installed"); }));
    return;
  } else {
    local.scriptFiles = {services_.mediaLibrary};
  }
  page_->load(local);
}

CallPage::~CallPage() { page_->run(disconnectScript); }

WebPageHandlers CallPage::handlers() {
  WebPageHandlers handlers;
  handlers.onFailed = [this](const WebLoadFailure& failure) { failed(failure.description); };
  handlers.onMessage = [this](const Json& message) {
    if (relay_) relay_->take(message);
  };
  handlers.onConsole = [this](const std::string& level, const std::string& text) {
    if (level != "info") services_.logger.log(source, LogLevel::warning, "Call page: " + text);
  };
  handlers.onClosed = [this] {
    if (onClosed) onClosed();
  };
  handlers.onEnded = [this](const Error& error) { failed(error.description); };
  return handlers;
}

void CallPage::failed(const std::string& why) {
  services_.logger.log(source, LogLevel::error, "Call page failed: " + why);
  if (onFailed) onFailed(why);
}

}  // namespace kestrin
