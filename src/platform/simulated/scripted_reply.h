#pragma once

#include <vector>

#include "platform/http.h"
#include "platform/json/json.h"

namespace kestrin {

/// What the scripted server does with one request: nothing at all, or a head after `delay`, then
/// the pieces of the body, each so long after what came before it, then the end.
struct ScriptedReply {
  enum class Head { answered, refused, lost, never };
  enum class End {
    complete,
    lost,   ///< reset, or cut before the announced length
    never,  ///< the connection stays open, silent
  };
  struct Piece {
    Duration delay{0};
    Bytes bytes;
  };

  Head head = Head::answered;
  Duration delay{0};
  int status = 200;
  HttpHeaders headers;
  std::vector<Piece> pieces;
  Duration endDelay{0};
  End end = End::complete;

  static ScriptedReply body(Bytes bytes, int status = 200);
  static ScriptedReply json(const Json& value, int status = 200);
  /// A 200 of type text/event-stream.
  static ScriptedReply events(std::vector<Piece> pieces);
  static ScriptedReply refused() { return withHead(Head::refused); }
  /// The connection breaks before any answer.
  static ScriptedReply lost() { return withHead(Head::lost); }
  static ScriptedReply never() { return withHead(Head::never); }

  ScriptedReply& after(Duration duration) { return delay = duration, *this; }
  ScriptedReply& piece(Duration after, Bytes bytes);
  ScriptedReply& ending(End how, Duration after = {}) { return end = how, endDelay = after, *this; }
  /// Keeps the first `bytes` bytes of the body, then the connection is lost.
  ScriptedReply& cutAfter(size_t bytes);

 private:
  static ScriptedReply withHead(Head head);
};

}  // namespace kestrin
