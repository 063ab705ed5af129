#pragma once

#include <memory>

#include "platform/accessibility.h"
#include "platform/dispatch/dispatch.h"

namespace kestrin {

namespace atspi {
class AtspiBus;
}

/// Accessibility over the AT-SPI bus. Watchers are called on a queue of `dispatch`. The object
/// starts without a bus too: each call then says what is missing, and the first one after the bus
/// is there finds it.
std::unique_ptr<Accessibility> makeAtspiAccessibility(Dispatch& dispatch,
                                                      std::shared_ptr<atspi::AtspiBus> bus);

}  // namespace kestrin
