#pragma once

#include <memory>

#include "companion/http/server.h"
#include "companion/recogniser/transcriber.h"

namespace kestrin::recogniser {

/// Adds the recogniser's routes: `POST /transcribe` (a WAV file in a form), `POST /transcribe/pcm`
/// (raw samples with `sample_rate`, `channels`, `bit_depth`), `GET /`, `GET /health`. What cannot
/// be recognised is answered with an error status and a plain text: a client that looks only for a
/// JSON object must not take it for silence. `dispatch` must outlive the server.
void addRoutes(server::Server& server, Dispatch& dispatch,
               const std::shared_ptr<Transcriber>& transcriber);

}  // namespace kestrin::recogniser
