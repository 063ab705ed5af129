#pragma once

#include <string>

#include "platform/files.h"

namespace kestrin::cli {

/// The sound of a WAV file, or of standard input for "-", as 16 kHz mono 16-bit PCM. Blocking.
Result<Bytes> readRecording(Files& files, const std::string& wav);

}  // namespace kestrin::cli
