#include "platform/simulated/scripted_reply.h"

#include <algorithm>

namespace kestrin {

ScriptedReply ScriptedReply::body(Bytes bytes, int status) {
  ScriptedReply reply;
  reply.status = status;
  reply.headers = {{"Content-Length", std::to_string(bytes.size())}};
  if (!bytes.empty()) reply.pieces.push_back({{}, std::move(bytes)});
  return reply;
}

ScriptedReply ScriptedReply::json(const Json& value, int status) {
  ScriptedReply reply = body(value.dump(), status);
  reply.headers.emplace_back("Content-Type", "application/json");
  return reply;
}

ScriptedReply ScriptedReply::events(std::vector<Piece> pieces) {
  ScriptedReply reply;
  reply.headers = {{"Content-Type", "text/event-stream"}};
  reply.pieces = std::move(pieces);
  return reply;
}

ScriptedReply ScriptedReply::withHead(Head head) {
  ScriptedReply reply;
  reply.head = head;
  return reply;
}

ScriptedReply& ScriptedReply::piece(Duration after, Bytes bytes) {
  pieces.push_back({after, std::move(bytes)});
  return *this;
}

ScriptedReply& ScriptedReply::cutAfter(size_t bytes) {
  std::vector<Piece> kept;
  for (Piece& piece : pieces) {
    if (bytes == 0) break;
    piece.bytes.resize(std::min(bytes, piece.bytes.size()));
    bytes -= piece.bytes.size();
    kept.push_back(std::move(piece));
  }
  pieces = std::move(kept);
  end = End::lost;
  return *this;
}

}  // namespace kestrin
