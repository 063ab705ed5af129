#pragma once

#include "companion/backend/backend_service.h"
#include "companion/home/home_service.h"

namespace kestrin::backend {

/// `/google/...` and `/gmail/...`: no account can be linked to this computer's own services, and
/// each answer says so.
void addGoogleRoutes(server::Server& server);

/// Asks the store for a user's newest dictation, for the time that `backend` lives.
home::HomeService::LastDictation lastDictation(BackendService& backend);

}  // namespace kestrin::backend
