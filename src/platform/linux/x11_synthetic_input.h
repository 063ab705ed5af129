#pragma once

#include <memory>
#include <mutex>

#include "platform/linux/synthetic_edges.h"
#include "platform/synthetic_input.h"

namespace kestrin {

/// Keys and pointer through the X server's test extension. Chords are sent one at a time.
class X11SyntheticInput final : public SyntheticInput {
 public:
  /// `edges` is shared with our key monitor. `display` empty: the one of the environment.
  explicit X11SyntheticInput(std::shared_ptr<SyntheticEdges> edges, std::string display = {});

  Status chord(const std::vector<std::string>& modifiers, const std::string& key) override;
  Result<Point> pointer() override;
  Status movePointer(Point to) override;
  Status buttonDown(int button) override;
  Status buttonUp(int button) override;

 private:
  Status fakePointer(uint8_t type, uint8_t detail, Point at);

  std::shared_ptr<SyntheticEdges> edges_;
  std::string display_;
  std::mutex mutex_;  ///< two chords at once would see each other's modifiers as the user's
};

}  // namespace kestrin
