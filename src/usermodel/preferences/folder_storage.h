#pragma once

#include <cstdint>
#include <string>

#include "platform/files.h"

namespace kestrin {

/// "0 KB", "340 KB", "1.2 MB", in decimal units as file managers show them.
std::string storageText(uint64_t bytes);

/// Size of all files below a folder; 0 for a missing one. Blocking.
uint64_t folderSize(Files& files, const std::string& folder);

/// Removes the folder with all that is in it and makes it anew. Never follows a link out of it.
/// Blocking; what cannot be removed stays.
void emptyFolder(Files& files, const std::string& folder);

}  // namespace kestrin
