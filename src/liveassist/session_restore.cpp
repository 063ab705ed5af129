// A stored session is shown again, to be continued.
#include <array>
#include <utility>

#include "liveassist/live_assist_view.h"

namespace kestrin {
namespace {

constexpr const char* source = "LiveAssist";

/// The stored labels as a live line shows them, without their prefixes.
std::string displayTextOf(const Json& line, int speakerNumber) {
  std::string out = "S" + std::to_string(speakerNumber);
  const Json* metadata = line.objectAt("metadata");
  if (metadata == nullptr) return out;
  constexpr std::array<std::pair<const char*, std::string_view>, 3> labels{
      {{"gender", "GENDER_"}, {"emotion", "EMOTION_"}, {"intent", "INTENT_"}}};
  for (const auto& [key, prefix] : labels) {
    std::string label = metadata->stringAt(key, "");
    if (label.starts_with(prefix)) label.erase(0, prefix.size());
    if (!label.empty()) out += " " + label;
  }
  return out;
}

}  // namespace

void LiveAssistView::loadSession(const std::string& sessionId) {
  historyWindow_.close();
  stopCapture();
  chat_.clearAll();
  audioEngine_.resetState();
  panel_.clearLiveFeedback();
  loop_.reset();
  loadingSession_.clear();
  show("Loading session...", StatusKind::starting);
  sessions_.loadFullSession(
      sessionId, lifetime_.guard([this, sessionId, load = ++loads_](const Result<Json>& session) {
        if (load == loads_) restore(sessionId, session);
      }));
}

void LiveAssistView::restore(const std::string& sessionId, const Result<Json>& session) {
  const auto record = session ? LASessionRecord::fromJson(*session) : std::nullopt;
  if (!record) return show("Failed to load session", StatusKind::failed);
  loadingSession_ = sessionId;
  sessions_.loadSessionTranscripts(sessionId);
  if (record->useCase) {
    useCase_ = *record->useCase;
    sessions_.useCase = useCase_;
    writePreferences();
  }
  if (!record->contactEmail.empty()) {
    panel_.selectContact(record->contactEmail, record->contactName);
  }
  sessions_.restoreFiles(record->attachedFiles);
  if (record->feedbackSnapshot) {
    Json stored = record->feedbackSnapshot->toJson();
    stored.set("memoryItems", Json(record->feedbackSnapshot->memoryItems));
    stored.set("docItems", Json(record->feedbackSnapshot->docItems));
    panel_.updateWithLiveContext(stored);
  }
  const size_t files = sessions_.attachedFiles().size();
  logger_.log(source, LogLevel::info,
              "Restored session " + sessionId + " with " +
                  (files == 0 ? "no files" : std::to_string(files) + " files"));
  show("Session loaded — start capture to continue", StatusKind::good);
}

void LiveAssistView::transcriptsLoaded(const std::vector<Json>& transcripts) {
  loadingSession_.clear();
  chat_.addSystemNotice("[Loaded previous session]");
  for (const Json& line : transcripts) {
    LAChatMessage message;
    message.id = services_.random.uuid();
    message.timestamp = services_.dispatch.clock().wallNow();
    if (const auto stored = line.stringAt("timestamp")) {
      message.timestamp = dates::parseIso8601(*stored).value_or(message.timestamp);
    }
    message.text = line.stringAt("text", "");
    message.channel = line.stringAt("channel", "") == rawValue(LAAudioChannel::microphone)
                          ? LAAudioChannel::microphone
                          : LAAudioChannel::system;
    message.speakerNumber = int(line.intAt("speakerNumber").value_or(1));
    message.metadata = displayTextOf(line, message.speakerNumber);
    chat_.addMessage(message);
  }
  chat_.addSystemNotice("Session loaded (" + std::to_string(transcripts.size()) + " segments)");
}

}  // namespace kestrin
