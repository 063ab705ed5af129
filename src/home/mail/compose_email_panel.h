#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "home/mail/gmail_client.h"

namespace kestrin {

/// The form of a new mail or of a reply. What was written is lost only when the user closes it, or
/// when it was sent. Main queue only; must be destroyed there.
class ComposeEmailPanel {
 public:
  static constexpr const char* recipientPlaceholder = "Start typing to search contacts...";
  static constexpr const char* missingFields = "Please enter recipient and subject.";
  static constexpr const char* sendFailed =
      "Could not send email. Make sure your Google account is connected with Gmail access in "
      "Settings, then try again.";
  static constexpr std::chrono::milliseconds searchPause{300};
  static constexpr size_t mostSuggestions = 8;

  ComposeEmailPanel(Dispatch& dispatch, GmailClient& client, Logger& logger)
      : dispatch_(dispatch), client_(client), logger_(logger) {}

  /// Opens it, empty or as a reply. While a mail is being sent that one's form comes back instead.
  void show(const std::optional<Email>& replyTo);
  /// A mail that is being sent still goes; should it fail, the form opens again.
  void close();
  void sendEmailClicked();

  /// The recipient's field changed by typing: suggestions follow.
  void recipientTyped(const std::string& text);
  void chooseSuggestion(size_t index);

  bool isOpen() const { return isOpen_; }
  bool isSending() const { return isSending_; }
  bool isReply() const { return !threadId_.empty(); }
  const std::string& currentToField() const { return toField_; }
  const std::vector<MailContact>& contactSuggestions() const { return suggestions_; }
  /// What is missing, or why it was not sent; else empty.
  const std::string& message() const { return message_; }
  /// The backend's own words for the latter.
  const std::string& reason() const { return reason_; }

  /// What the user has written so far. A widget writes here, and reads after `onChange`.
  std::string subjectField;
  std::string bodyField;

  std::function<void(const std::string& text, bool failed)> onStatus;
  std::function<void()> onChange;

 private:
  void fetchContactsForAutocomplete();
  void searchContacts(const std::string& query);
  void suggest(const std::vector<MailContact>& found);
  void clear();
  void sent(const std::string& recipient, const Status& status);
  void changed() {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  GmailClient& client_;
  Logger& logger_;
  bool isOpen_ = false, isSending_ = false;
  std::string toField_, threadId_, message_, reason_;
  std::vector<MailContact> frequent_, suggestions_;
  int searches_ = 0;  ///< only the answer to the newest is shown
  TimerHandle searchTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
