#pragma once

#include <memory>

#include "platform/browser.h"

namespace kestrin {

namespace atspi {
class AtspiBus;
}

/// Pages and tabs of the Firefox and Chromium families through their accessibility trees. Chromium
/// shows its pages only when started with --force-renderer-accessibility; without it the title of
/// the window is all there is, and the address stays empty.
std::unique_ptr<Browser> makeAtspiBrowser(std::shared_ptr<atspi::AtspiBus> bus);

}  // namespace kestrin
