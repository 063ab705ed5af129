#pragma once

#include "diagnostics/terminal/terminal_view.h"

namespace kestrin {

template <class T>
std::function<void(const T&)> TerminalView::later(std::function<void(const T&)> show) {
  ++pending_;
  const std::function<void(const T&)> guarded =
      lifetime_.guard([this, show = std::move(show)](const T& value) {
        --pending_;
        show(value);
        changed();
      });
  return [main = services_.dispatch.mainQueue(), guarded](const T& value) {
    main->post([guarded, value] { guarded(value); });
  };
}

}  // namespace kestrin
