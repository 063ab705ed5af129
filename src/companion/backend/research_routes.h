#pragma once

#include "companion/backend/backend_service.h"
#include "companion/research/research_service.h"

namespace kestrin::backend {

/// `POST /research/save`, `GET /research/history/<user>`, `DELETE /research/<id>`.
void addResearchRoutes(server::Server& server, BackendService& backend, Clock& clock);

/// What research by itself needs of the store, for the time that `backend` lives.
research::RecordSearch recordSearch(BackendService& backend);
research::ResearchService::Keep keepResearch(BackendService& backend, Clock& clock,
                                             std::function<void(std::string)> log);

}  // namespace kestrin::backend
