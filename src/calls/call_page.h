#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "calls/media_page.h"
#include "calls/room_relay.h"
#include "diagnostics/logger.h"
#include "platform/web_page.h"

namespace kestrin {

/// What calls' pages are made of. All of it must outlive them.
struct CallPageServices {
  Dispatch& dispatch;
  WebPages& webPages;
  Random& random;
  Logger& logger;
  std::shared_ptr<HttpSession> session;
  std::string backend;
  std::string mediaLibrary;  ///< path of the hosted service's library; empty: it is not installed
};

/// The web page of one call in a process of its own; destroying it leaves the room and gives the
/// memory back. Main queue only; must be destroyed there.
class CallPage {
 public:
  CallPage(CallPageServices services, MediaPageHost host, const MediaPageValues& values,
           const std::string& title);
  ~CallPage();
  CallPage(const CallPage&) = delete;
  CallPage& operator=(const CallPage&) = delete;

  void setMuted(bool muted) { page_->run(muteScript(muted)); }
  void setCameraOff(bool off) { page_->run(cameraScript(off)); }
  void raise() { page_->raise(); }

  /// The user closed its window.
  std::function<void()> onClosed;
  /// It cannot be shown, or not any more.
  std::function<void(const std::string& why)> onFailed;

 private:
  WebPageHandlers handlers();
  void failed(const std::string& why);

  const CallPageServices services_;
  std::unique_ptr<RoomRelay> relay_;
  std::unique_ptr<WebPage> page_;
  Lifetime lifetime_;
};

}  // namespace kestrin
