#pragma once

#include <atomic>
#include <thread>

#include "platform/key_monitor.h"
#include "platform/linux/key_names.h"
#include "platform/linux/x11_keyboard.h"

namespace kestrin {

/// The hold key through the X server's raw events: they come without auto-repeat, without a grab of
/// ours and in spite of everybody else's. One thread of its own, on which `onEdge` is called;
/// `stop` (and destruction) wait for it, so neither may be called from `onEdge`.
class X11KeyMonitor final : public KeyMonitor {
 public:
  /// `edges` is shared with our synthetic input. `display` empty: the one of the environment.
  explicit X11KeyMonitor(std::shared_ptr<SyntheticEdges> edges, std::string display = {});
  ~X11KeyMonitor() override;

  Status start(const std::string& key, std::function<void(KeyEdge)> onEdge) override;
  void stop() override;
  std::vector<std::string> availableKeys() override;

 private:
  using Opened = std::unique_ptr<X11Connection>;
  Result<Opened> connect();
  void watch(Opened x);
  void handle(X11Connection& x, const xcb_generic_event_t& event);
  void setHeld(bool held);

  std::shared_ptr<SyntheticEdges> edges_;
  std::string display_;
  std::thread thread_;
  WakeEvent wake_;
  std::atomic<bool> stopping_ = false;

  // Of the thread, once it runs.
  HoldKey key_{};
  std::function<void(KeyEdge)> onEdge_;
  std::vector<X11KeyboardDevice> keyboards_;
  bool held_ = false;
};

}  // namespace kestrin
