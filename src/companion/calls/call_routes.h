#pragma once

#include "companion/backend/backend_service.h"
#include "platform/files.h"

namespace kestrin::backend {

/// `POST /calls/initiate`, `/answer`, `/token`, `/end`, `/transcript`, `/room`, `GET
/// /calls/incoming/<id>`, `/calls/history/<id>`, and presence and contacts: `POST
/// /presence/heartbeat`, `/offline`, `GET /presence/online`, `/contacts/frequent/<id>`,
/// `/contacts/search`. A call belongs to its two sides alone. `clock` and `random` must outlive the
/// server.
void addCallRoutes(server::Server& server, BackendService& backend, Clock& clock, Random& random);

}  // namespace kestrin::backend
