#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "liveassist/audio_channel.h"
#include "liveassist/session_records.h"

namespace kestrin {

/// The panel beside the transcript: the contact, the sources that may be used, the current feedback
/// and suggestions, what is remembered, what the documents say, and how both sides sound. Main
/// queue only.
class LiveAssistContextPanel {
 public:
  static constexpr const char* plainHeader = "AI Companion";

  struct Contact {
    std::string email;
    std::string name;
    bool operator==(const Contact&) const = default;
  };
  struct Source {
    const char* name;   ///< as the backend knows it
    const char* title;  ///< "Documents"
  };
  /// All that can be switched on, in order.
  static const std::vector<Source>& sources();

  /// A card about something remembered or found in a document.
  struct Item {
    std::string icon;
    std::string title;
    std::string detail;
    Json json;  ///< as it came; what a pin keeps
  };
  /// What one side has shown last and most often.
  struct Tracked {
    std::string emotion;  ///< "Happy"; empty before the first label
    std::string intent;   ///< "Inform"
    std::map<std::string, int> emotions;
    std::map<std::string, int> intents;
  };

  LiveAssistContextPanel();

  // What the conversation brings:

  /// The whole answer of a refresh, or a stored snapshot. What is absent stays; feedback that is
  /// empty does not take the place of earlier feedback.
  void updateWithLiveContext(const Json& answer);
  void updateWithContactContext(const Json& answer);
  void updateInlineFeedback(const std::string& summary,
                            const std::vector<std::string>& suggestions);
  /// Labels as received, with their prefixes; an empty one counts for nothing.
  void trackMetadata(LAAudioChannel channel, const std::string& emotion, const std::string& intent);
  void setCapturing(bool capturing);
  void clearLiveFeedback();

  // What the user does:

  void selectContact(const std::string& email, const std::string& name);
  void clearContact();
  void setSource(const std::string& name, bool on);
  /// Index into `memoryItems` or `docItems`.
  void pinMemory(size_t index);
  void pinDocument(size_t index);

  const std::optional<Contact>& contact() const { return contact_; }
  /// The contact's name or address; "AI Companion" without one.
  std::string header() const;
  const std::map<std::string, bool>& contextFilters() const { return filters_; }
  bool isCapturing() const { return isCapturing_; }
  const std::string& feedbackSummary() const { return feedback_.feedbackSummary; }
  const std::vector<std::string>& suggestions() const { return feedback_.suggestions; }
  const std::vector<std::string>& keywords() const { return feedback_.keywords; }
  std::vector<Item> memoryItems() const;
  std::vector<Item> docItems() const;
  /// What is known of the contact, a text a line; empty without.
  const std::vector<std::string>& contactLines() const { return contactLines_; }
  const Tracked& tracked(LAAudioChannel channel) const {
    return channel == LAAudioChannel::microphone ? mic_ : system_;
  }
  /// Feedback is shown and no contact: what is pinned shows as well.
  bool showsFeedbackWithoutContact() const;
  /// What the session's record keeps of it.
  LAFeedbackSnapshot snapshot() const;
  /// What an empty panel says.
  std::string emptyText() const;

  /// After every change; a widget redraws.
  std::function<void()> onChange;
  std::function<void(const Json& item)> onPin;
  std::function<void(const std::string& email, const std::string& name)> onContactSelected;
  std::function<void()> onSourcesChanged;
  void rerender() {
    if (onChange) onChange();
  }

 private:
  static std::vector<Item> itemsOf(const std::vector<Json>& items);
  void pin(const std::vector<Json>& items, size_t index, const char* kind);

  std::optional<Contact> contact_;
  std::vector<std::string> contactLines_;
  std::map<std::string, bool> filters_;
  LAFeedbackSnapshot feedback_;
  Tracked mic_, system_;
  bool isCapturing_ = false;
};

}  // namespace kestrin
