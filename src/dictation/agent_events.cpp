#include "dictation/agent_events.h"

#include <simdjson.h>

#include "platform/text/text.h"

namespace kestrin {

struct AgentEventReader::Parser {
  simdjson::ondemand::parser parser;
  std::string padded;  ///< the parser reads some bytes past the end
  std::string_view chunk;
};

Json OutputRoute::toJson() const {
  return Json::object({{"channel", channel},
                       {"suppress_paste", suppressPaste},
                       {"auto_speak", autoSpeak},
                       {"show_in_panel", showInPanel}});
}

AgentEventReader::AgentEventReader(const std::string& requestedMode, AgentEventHandlers handlers)
    : handlers_(std::move(handlers)),
      parser_(std::make_unique<Parser>()),
      mode_(requestedMode),
      isCommand_(requestedMode == "command") {}

AgentEventReader::~AgentEventReader() = default;

void AgentEventReader::receive(std::string_view event) {
  if (const std::string_view* chunk = lonelyChunk(event)) {
    heardAnything_ = true;
    receiveChunk(*chunk);
    return;
  }
  const Result<Json> parsed = Json::parse(event);
  if (!parsed || !parsed->isObject()) return;
  heardAnything_ = true;
  receiveObject(*parsed);
}

const std::string_view* AgentEventReader::lonelyChunk(std::string_view event) {
  constexpr std::string_view beginning = R"({"chunk")";
  if (event.substr(0, beginning.size()) != beginning) return nullptr;
  Parser& p = *parser_;
  p.padded.assign(event);
  p.padded.resize(event.size() + simdjson::SIMDJSON_PADDING, ' ');
  simdjson::ondemand::document document;
  simdjson::ondemand::object object;
  if (p.parser.iterate(p.padded.data(), event.size(), p.padded.size()).get(document) ||
      document.get_object().get(object)) {
    return nullptr;
  }
  int fields = 0;
  for (auto field : object) {
    if (field.error() || ++fields > 1 || field.value().get_string().get(p.chunk)) return nullptr;
  }
  const char* rest = nullptr;
  const bool atEnd = document.current_location().get(rest) == simdjson::OUT_OF_BOUNDS;
  return fields == 1 && atEnd ? &p.chunk : nullptr;
}

void AgentEventReader::receiveChunk(std::string_view chunk) {
  const std::string text = filter_.accept(chunk);
  if (text.empty()) return;
  fullText_ += text;
  if (!isCommand_ && handlers_.onChunk) handlers_.onChunk(text);
}

void AgentEventReader::receiveObject(const Json& object) {
  if (const Json* chunk = object.find("chunk"); chunk && chunk->stringPtr()) {
    receiveChunk(*chunk->stringPtr());
    return;
  }
  if (auto mode = object.stringAt("mode")) {
    mode_ = std::move(*mode);
    isCommand_ = isCommand_ || mode_ == "command";
    if (const auto detected = object.boolAt("auto_detected")) autoDetected_ = *detected;
  }
  if (const auto audio = object.stringAt("audio")) {
    Bytes decoded;
    if (text::base64Decode(*audio, decoded) && handlers_.onAudio) {
      handlers_.onAudio(std::move(decoded));
    }
  }
  // The flag's value says nothing: an agent that names a search has started one.
  if (object.boolAt("research_started")) {
    const auto id = object.stringAt("research_id");
    if (id && handlers_.onResearchStarted) handlers_.onResearchStarted(*id);
  }
  if (const Json* route = object.objectAt("output_route"); route && handlers_.onOutputRoute) {
    handlers_.onOutputRoute({route->stringAt("channel", "paste"),
                             route->boolAt("suppress_paste").value_or(false),
                             route->boolAt("auto_speak").value_or(false),
                             route->boolAt("show_in_panel").value_or(false)});
  }
  if (const Json* action = object.objectAt("action"); action && handlers_.onAction) {
    handlers_.onAction(*action);
  }
}

}  // namespace kestrin
