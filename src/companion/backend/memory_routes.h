#pragma once

#include "companion/assist/model_feedback.h"
#include "companion/backend/backend_service.h"

namespace kestrin::backend {

/// `POST /memory/live-context` (feedback by the language model that the request names, by rules
/// where it names none or the model fails), `GET /memory/contact-context`, and `GET /drive/files`
/// and `/drive/file/...`, which say that there is no Drive. `feedback` must outlive the server.
void addMemoryRoutes(server::Server& server, BackendService& backend,
                     assist::ModelFeedback& feedback);

}  // namespace kestrin::backend
