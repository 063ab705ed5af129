#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "dictation/chunk_filter.h"
#include "platform/bytes.h"
#include "platform/json/json.h"

namespace kestrin {

/// Where the agent wants its answer to go. Announced only: nothing acts on it here.
struct OutputRoute {
  std::string channel = "paste";
  bool suppressPaste = false;
  bool autoSpeak = false;
  bool showInPanel = false;

  Json toJson() const;
};

/// What one stream's events ask for, in the order of the event table. Any may be empty.
struct AgentEventHandlers {
  /// Text for the caret.
  std::function<void(const std::string& text)> onChunk;
  std::function<void(Bytes audio)> onAudio;
  std::function<void(const std::string& researchId)> onResearchStarted;
  std::function<void(const OutputRoute& route)> onOutputRoute;
  std::function<void(const Json& action)> onAction;
};

/// Reads the events of one stream: one JSON object each, whose keys say what it is. Keeps what the
/// result of the stream is made of. Not thread-safe: events of one stream come one at a time.
class AgentEventReader {
 public:
  AgentEventReader(const std::string& requestedMode, AgentEventHandlers handlers);
  ~AgentEventReader();

  /// Whatever is no JSON object is ignored.
  void receive(std::string_view event);

  /// All text that left the filter.
  const std::string& fullText() const { return fullText_; }
  const std::string& mode() const { return mode_; }
  bool autoDetected() const { return autoDetected_; }
  /// Whether any event was a JSON object.
  bool heardAnything() const { return heardAnything_; }

 private:
  struct Parser;

  /// The text of an event that holds a chunk and nothing else, read without building a value. Null
  /// where the event is anything else, or not certainly well-formed.
  const std::string_view* lonelyChunk(std::string_view event);
  void receiveChunk(std::string_view chunk);
  void receiveObject(const Json& object);

  AgentEventHandlers handlers_;
  std::unique_ptr<Parser> parser_;
  ChunkFilter filter_;
  std::string fullText_;
  std::string mode_;
  bool autoDetected_ = false;
  bool heardAnything_ = false;
  /// Once a stream is a command its text is a list of actions, which must not be typed anywhere.
  bool isCommand_ = false;
};

}  // namespace kestrin
