#pragma once

#include <optional>
#include <string>

#include "platform/files.h"

namespace kestrin {

/// The folders under "Application Support" that hold who this installation is.
inline constexpr const char* accountFolder = "com.kestrin.kestrin";
inline constexpr const char* legacyAccountFolder = "com.kestrin.nibo";

/// Path of `name` in the account folder; writing it makes the folder. A file that only the legacy
/// folder has is copied over first and stays where it was. Nothing without a data folder. Blocking.
std::optional<std::string> accountFilePath(Files& files, const std::string& name);

/// Path of `name` in the legacy folder.
std::string legacyAccountFilePath(Files& files, const std::string& name);

}  // namespace kestrin
