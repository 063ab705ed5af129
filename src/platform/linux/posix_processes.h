#pragma once

#include <memory>

#include "platform/processes.h"

namespace kestrin {

/// Child processes without a shell. One thread starts them, reads what they print and waits for
/// their end; it lives as long as this object, and so do the children that die with their parent.
std::unique_ptr<Processes> makePosixProcesses();

}  // namespace kestrin
