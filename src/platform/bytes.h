#pragma once

#include <string>

namespace kestrin {

/// Raw bytes (request bodies, PCM, file contents). A string, so that bodies and files need no copy
/// to become text; nothing assumes that it is UTF-8.
using Bytes = std::string;

}  // namespace kestrin
