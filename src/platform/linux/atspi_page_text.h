#pragma once

#include <string>

#include "platform/linux/atspi_bus.h"

namespace kestrin::atspi {

/// The text of a document, read from its pieces in reading order, up to `limit` characters. What
/// the budget did not suffice for is missing at the end.
Result<std::string> pageText(AtspiBus& bus, const AxElement& document, size_t limit,
                             const Budget& budget);

}  // namespace kestrin::atspi
