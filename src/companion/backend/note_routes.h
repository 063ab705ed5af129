#pragma once

#include "companion/backend/backend_service.h"
#include "platform/files.h"

namespace kestrin::backend {

/// `POST /notes/save`, `GET /notes/<user>`, `PUT /notes/<id>`. A note's id comes from `random`,
/// which must outlive the server; only its user's requests may change it.
void addNoteRoutes(server::Server& server, BackendService& backend, Clock& clock, Random& random);

}  // namespace kestrin::backend
