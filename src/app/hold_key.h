#pragma once

#include <functional>
#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/key_monitor.h"
#include "platform/lifetime.h"
#include "platform/settings.h"

namespace kestrin {

/// The key that the user chose, or else the first that this desktop can watch.
std::string chosenHoldKey(const SettingsStore& settings, KeyMonitor& keyMonitor);

/// Tells a held key from a key that only passes by: the key of a chord with another key, or a mere
/// tap. Main queue only.
class HoldKey {
 public:
  /// A press counts once the key has been held this long without another key.
  static constexpr std::chrono::milliseconds confirmAfter{200};

  struct Handlers {
    std::function<void()> pressed;    ///< at once, at the edge
    std::function<void()> confirmed;  ///< the press counts; nothing but the release ends it now
    std::function<void()> discarded;  ///< released, or another key pressed, before it counted
    std::function<void()> released;   ///< of a press that counted
  };

  HoldKey(Dispatch& dispatch, Handlers handlers)
      : dispatch_(dispatch), handlers_(std::move(handlers)) {}

  /// A repeat of the same edge does nothing.
  void edge(KeyEdge edge);

  bool isDown() const { return state_ != State::up; }
  /// Down, and not taken for a chord.
  bool isHeld() const { return state_ == State::undecided || state_ == State::confirmed; }
  bool isConfirmed() const { return state_ == State::confirmed; }

 private:
  enum class State { up, undecided, confirmed, discarded };
  void discard(State next);

  Dispatch& dispatch_;
  Handlers handlers_;
  State state_ = State::up;
  TimerHandle timer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
