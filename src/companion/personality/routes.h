#pragma once

#include <memory>

#include "companion/backend/backend_service.h"
#include "companion/recogniser/transcriber.h"

namespace kestrin::personality {

/// `POST /personality-test`, `GET /archetype/<user>`, `POST /classify-archetype/<user>`. Without a
/// transcriber (null) the test says that it cannot hear.
void addRoutes(server::Server& server, backend::BackendService& backend,
               std::shared_ptr<recogniser::Transcriber> transcriber);

}  // namespace kestrin::personality
