#pragma once

#include <string>
#include <string_view>

#include "platform/http.h"

namespace kestrin {

// What the recogniser is asked with: one multipart request for each recording. `baseUrl` has no
// trailing slash; `boundary` is a fresh UUID.

/// A WAV file, to "/transcribe".
HttpRequest asrFileRequest(const std::string& baseUrl, std::string_view wav,
                           const std::string& boundary);
/// Signed 16-bit little-endian mono samples, to "/transcribe/pcm". `topK`: how many candidates for
/// each attribute of the voice are wanted.
HttpRequest asrPcmRequest(const std::string& baseUrl, std::string_view pcm, int sampleRate,
                          int topK, const std::string& boundary);

}  // namespace kestrin
