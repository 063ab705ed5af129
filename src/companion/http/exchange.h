#pragma once

#include <microhttpd.h>
#include <mutex>
#include <string>
#include <vector>

#include "companion/http/server.h"

namespace kestrin::server {

/// One request and its answer: the meeting point of the server's thread, which receives and sends,
/// and of whoever makes the answer. While there is nothing to send the connection is suspended.
struct Exchange {
  enum class Answer { none, whole, pieces };
  enum class Next { send, wait, drop };
  enum class End { open, whole, broken };

  // Before dispatch only the server's thread touches these.
  Request request;
  Handler handler;
  int refusal = 0;  ///< status of an answer that the server gives itself
  std::string refusalText;
  std::string allow;  ///< with 405
  bool dispatched = false;

  /// Null: nothing is between the server and whoever asks (see InProcessRequest).
  explicit Exchange(MHD_Connection* connection);

  // For handlers' side: any thread.
  void answerWhole(int status, std::string contentType, Bytes body);
  bool answerPieces(std::string contentType);
  void send(std::string_view bytes);
  void close(End end);
  bool clientGone() const;
  void onClientGone(Job job);

  // For the server's side.
  /// After dispatch and after each resumption: what to do with the connection, which is suspended
  /// here when there is nothing to do.
  Next next();
  /// Queues the answer. Server's thread only.
  MHD_Result queueAnswer(const std::shared_ptr<Exchange>& self);
  /// For an answer in pieces: as libmicrohttpd's content reader.
  ssize_t read(char* target, size_t size);
  /// The client (or the server) has gone: wakes the connection so that it can be taken down.
  void abandon();
  /// True once the peer of a suspended connection has closed.
  bool peerHasClosed() const;
  struct Told {
    int status = 0;  ///< 0: nothing yet
    std::string contentType;
    Bytes body;
    bool ended = false;
  };
  /// Without a connection: the answer as far as it is there.
  Told told() const;
  /// The connection is done with.
  void finished(bool completely);

 private:
  void resumeLocked();
  void runGoneJobs(std::unique_lock<std::mutex> lock);

  mutable std::mutex mutex_;
  MHD_Connection* connection_;
  bool isOpen_ = true;
  bool suspended_ = false;
  bool gone_ = false;
  Answer answer_ = Answer::none;
  int status_ = 0;
  std::string contentType_;
  Bytes outgoing_;
  size_t sent_ = 0;
  End end_ = End::open;
  std::vector<Job> goneJobs_;
};

}  // namespace kestrin::server
