#pragma once

#include "companion/backend/backend_service.h"

namespace kestrin::backend {

/// `POST /presence/heartbeat`, `/presence/offline`, `GET /presence/online`,
/// `/contacts/frequent/<id>`, `/contacts/search`. Who is online, and under which name, is what the
/// devices of one backend tell each other. `clock` must outlive the server.
void addPresenceRoutes(server::Server& server, BackendService& backend, Clock& clock);

}  // namespace kestrin::backend
