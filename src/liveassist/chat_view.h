#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/audio_channel.h"
#include "liveassist/session_records.h"
#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "platform/pasteboard.h"

namespace kestrin {

/// One line of a conversation.
struct LAChatMessage {
  std::string id;
  Date timestamp;
  std::string text;
  LAAudioChannel channel = LAAudioChannel::microphone;
  std::string metadata;  ///< the labels as they are shown, with or without their prefixes
  int speakerNumber = 1;
  bool speakerChanged = false;
};

class LiveAssistChatView;

/// Called on the main queue.
class LiveAssistChatViewDelegate {
 public:
  virtual ~LiveAssistChatViewDelegate() = default;
  virtual void didRequestPin(LiveAssistChatView& chat, const LAChatMessage& message) = 0;
};

/// The running transcript, newest last, and the lists by channel that the context refresh reads.
/// Main queue only.
class LiveAssistChatView {
 public:
  static constexpr const char* pinTitle = "📌 Pin to Context";
  static constexpr const char* copyTitle = "Copy";
  static constexpr const char* copiedText = "Copied";
  static constexpr std::chrono::milliseconds confirmationDuration{1500};

  /// What stands on one line of the view.
  struct Line {
    std::string messageId;  ///< empty: a notice, which is no message
    std::string time;       ///< "14:03:07"
    std::string text;
    std::string details;  ///< the labels without their prefixes
    LAAudioChannel channel = LAAudioChannel::microphone;
    int speakerNumber = 1;
    bool speakerChanged = false;
  };

  LiveAssistChatView(Dispatch& dispatch, Pasteboard& pasteboard, Logger& logger);

  std::weak_ptr<LiveAssistChatViewDelegate> delegate;

  void addMessage(const LAChatMessage& message);
  /// A line that enters neither the messages nor the lists by channel.
  void addSystemNotice(const std::string& text);
  void clearAll();

  // A line's menu:
  void pin(const std::string& messageId);
  /// To the clipboard, in the background; `confirmation` tells that it is there.
  void copy(const std::string& messageId);

  const std::vector<LAChatMessage>& messages() const { return messages_; }
  const std::vector<LATranscriptEntry>& systemTranscripts() const { return systemTranscripts_; }
  const std::vector<LATranscriptEntry>& micTranscripts() const { return micTranscripts_; }
  /// In order; only appended to between two `clearAll`.
  const std::vector<Line>& lines() const { return lines_; }
  const std::optional<std::string>& confirmation() const { return confirmation_; }

  /// After every change; a widget redraws and shows the last line.
  std::function<void()> onChange;

 private:
  const LAChatMessage* find(const std::string& messageId) const;
  void confirm(const std::string& text);
  void changed() const {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  Pasteboard& pasteboard_;
  Logger& logger_;
  std::vector<LAChatMessage> messages_;
  std::vector<LATranscriptEntry> systemTranscripts_, micTranscripts_;
  std::vector<Line> lines_;
  std::optional<std::string> confirmation_;
  TimerHandle confirmationTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
