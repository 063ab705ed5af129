#include "liveassist/chat_view.h"

#include <algorithm>
#include <array>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "LiveAssist";
constexpr std::string_view emotionPrefix = "EMOTION_";
constexpr std::array<std::string_view, 7> emotionNames{"NEUTRAL",  "ANGRY", "SAD",    "HAPPY",
                                                       "SURPRISE", "FEAR",  "DISGUST"};
constexpr std::array prefixes{"GENDER_", "EMOTION_", "INTENT_", "AGE_"};

/// The last emotion that the labels name; empty without one.
std::string emotionIn(const std::string& metadata) {
  const std::string apart = text::replaceAll(text::replaceAll(metadata, "|", " "), "·", " ");
  std::string emotion;
  for (std::string piece : text::split(apart, " ")) {
    if (piece.starts_with(emotionPrefix)) piece.erase(0, emotionPrefix.size());
    if (std::find(emotionNames.begin(), emotionNames.end(), piece) != emotionNames.end()) {
      emotion = piece;
    }
  }
  return emotion;
}

std::string withoutPrefixes(std::string metadata) {
  for (const char* prefix : prefixes) metadata = text::replaceAll(std::move(metadata), prefix, "");
  return metadata;
}

}  // namespace

LiveAssistChatView::LiveAssistChatView(Dispatch& dispatch, Pasteboard& pasteboard, Logger& logger)
    : dispatch_(dispatch), pasteboard_(pasteboard), logger_(logger) {}

void LiveAssistChatView::addMessage(const LAChatMessage& message) {
  messages_.push_back(message);
  auto& entries =
      message.channel == LAAudioChannel::microphone ? micTranscripts_ : systemTranscripts_;
  entries.push_back({message.timestamp, message.text, true, emotionIn(message.metadata)});
  lines_.push_back({message.id, dates::format(message.timestamp, "HH:mm:ss"), message.text,
                    withoutPrefixes(message.metadata), message.channel, message.speakerNumber,
                    message.speakerChanged});
  changed();
}

void LiveAssistChatView::addSystemNotice(const std::string& text) {
  Line line;
  line.text = text;
  lines_.push_back(std::move(line));
  changed();
}

void LiveAssistChatView::clearAll() {
  messages_.clear();
  systemTranscripts_.clear();
  micTranscripts_.clear();
  lines_.clear();
  changed();
}

const LAChatMessage* LiveAssistChatView::find(const std::string& messageId) const {
  const auto found = std::find_if(messages_.begin(), messages_.end(),
                                  [&](const auto& each) { return each.id == messageId; });
  return found == messages_.end() ? nullptr : &*found;
}

void LiveAssistChatView::pin(const std::string& messageId) {
  const LAChatMessage* message = find(messageId);
  const auto receiver = delegate.lock();
  if (message != nullptr && receiver) receiver->didRequestPin(*this, *message);
}

void LiveAssistChatView::copy(const std::string& messageId) {
  const LAChatMessage* message = find(messageId);
  if (message == nullptr) return;
  inBackground(
      dispatch_, dispatch_.globalQueue(), lifetime_,
      [&pasteboard = pasteboard_, text = message->text] { return pasteboard.setString(text); },
      [this](const Status& copied) {
        if (copied) return confirm(copiedText);
        logger_.log(source, LogLevel::error, copied.error().description);
        confirm(copied.error().description);
      });
}

void LiveAssistChatView::confirm(const std::string& text) {
  confirmation_ = text;
  confirmationTimer_ = dispatch_.after(dispatch_.mainQueue(), confirmationDuration, [this] {
    confirmation_.reset();
    changed();
  });
  changed();
}

}  // namespace kestrin
