#pragma once

#include <mutex>

#include "platform/linux/x11_selection_server.h"
#include "platform/pasteboard.h"

namespace kestrin {

/// The X clipboard. Connects when first used, and again after the X server has gone.
class X11Pasteboard final : public Pasteboard {
 public:
  /// `display` empty: the one of the environment.
  explicit X11Pasteboard(std::string display = {});
  ~X11Pasteboard() override;

  std::optional<std::string> string() override;
  Status setString(const std::string& text) override;
  Status clear() override;
  int fetches() override;
  bool waitForFetch(int seen, Duration timeout) override;
  bool isOwner() override;

 private:
  using Server = std::shared_ptr<X11SelectionServer>;
  Server current();
  Result<Server> connected();

  std::string display_;
  std::mutex mutex_;
  Server server_;
};

}  // namespace kestrin
