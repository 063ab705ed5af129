#pragma once

#include <string>

#include "platform/result.h"

namespace kestrin::backend {

// The backend's data as one file to keep elsewhere, and its removal. Blocking. Errors: domain
// "Store".

/// Writes a consistent copy, also while the companion works (mode 0600, whole or not at all).
Status exportStore(const std::string& storePath, const std::string& file);
/// Puts such a copy in the place of what is there, in one transaction, once it is known to be whole
/// and of a version that this program reads.
Status importStore(const std::string& storePath, const std::string& file);
/// Removes the data and its side files. Refuses while a companion has them open.
Status eraseStore(const std::string& storePath);

}  // namespace kestrin::backend
