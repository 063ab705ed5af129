#pragma once

#include <memory>
#include <string>

#include "companion/backend/store.h"
#include "companion/http/server.h"

namespace kestrin::backend {

/// The backend's routes over the store, which works on a queue of its own.
class BackendService {
 public:
  /// `version` is the installed one, as `/app/version` tells it.
  BackendService(Dispatch& dispatch, Store store, std::string version);
  /// Waits for the work under way, so that what it refers to may go afterwards. The server must
  /// have gone before.
  ~BackendService();

  /// `POST /log-transcription`, `POST /update-voice-profile`, `GET` and `DELETE /history/<user>`,
  /// `GET /user-stats/<user>`, `GET /user/profile/<user>`, `GET /voice-profile` and
  /// `/voice-profile/<user>`, `POST /refresh-personality/<user>`, `GET /app/version`, `GET /`,
  /// `GET /health`. This must outlive the server.
  void addRoutes(server::Server& server);

  using Work = std::function<void(Store&, const server::Request&, const server::Responder&)>;
  /// Runs `work` with the store, on the store's queue. From any thread.
  void withStore(std::function<void(Store&)> work);
  /// A route whose work runs with the store, on the store's queue.
  void addStoreRoute(server::Server& server, const char* method, const char* path, Work work);

 private:
  void addUserRoute(server::Server& server, const char* method, const char* path, Work work);

  Dispatch& dispatch_;
  const std::string version_;
  QueueRef queue_;
  std::shared_ptr<Store> store_;  // on `queue_` only; pending jobs share it
};

}  // namespace kestrin::backend
