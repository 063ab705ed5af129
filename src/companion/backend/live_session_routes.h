#pragma once

#include "companion/backend/backend_service.h"
#include "platform/files.h"

namespace kestrin::backend {

/// `POST /live-assist/session/start`, `/end`, `/update`, `/<id>/deliver`, `POST
/// /live-assist/transcript`, `GET /live-assist/sessions/<device>`, `/live-assist/session/<id>` and
/// `/live-assist/session/<id>/transcripts`. Who knows a session's id, which `random` makes, and
/// claims no other device's, may see and change it. `random` must outlive the server.
void addLiveSessionRoutes(server::Server& server, BackendService& backend, Clock& clock,
                          Random& random);

}  // namespace kestrin::backend
