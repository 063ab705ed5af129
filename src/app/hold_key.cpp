#include "app/hold_key.h"

namespace kestrin {

std::string chosenHoldKey(const SettingsStore& settings, KeyMonitor& keyMonitor) {
  const std::string chosen = settings.string("pref_holdKey");
  if (!chosen.empty()) return chosen;
  const auto available = keyMonitor.availableKeys();
  return available.empty() ? "Right Ctrl" : available.front();
}

void HoldKey::edge(KeyEdge edge) {
  switch (edge) {
    case KeyEdge::holdDown:
      if (isDown()) return;
      state_ = State::undecided;
      timer_ = dispatch_.after(dispatch_.mainQueue(), confirmAfter, lifetime_.guard([this] {
        if (state_ != State::undecided) return;
        state_ = State::confirmed;
        handlers_.confirmed();
      }));
      return handlers_.pressed();
    case KeyEdge::otherKey:
      if (state_ == State::undecided) discard(State::discarded);
      return;
    case KeyEdge::holdUp:
      if (state_ == State::undecided) return discard(State::up);
      if (state_ == State::confirmed) {
        state_ = State::up;
        return handlers_.released();
      }
      state_ = State::up;
      return;
  }
}

void HoldKey::discard(State next) {
  timer_.reset();
  state_ = next;
  handlers_.discarded();
}

}  // namespace kestrin
