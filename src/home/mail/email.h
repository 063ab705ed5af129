#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/json/json.h"

namespace kestrin {

/// One message, as the backend tells of it; what it leaves out is empty.
struct Email {
  std::string id;
  std::string threadId;
  std::string from, fromName;
  std::string subject;
  std::string date;
  std::string snippet, bodyPreview;
  bool isUnread = false;

  static Email fromJson(const Json& json);
  /// Who to show: the name, else the address, else "Unknown".
  std::string sender() const;
  /// The subject, else "(No subject)".
  std::string shownSubject() const;
  /// Where a browser shows it.
  std::string webAddress() const;
};

/// Somebody to write to.
struct MailContact {
  std::string name, email;
  bool operator==(const MailContact&) const = default;
};

/// The messages of an answer; nothing when it has no list of them.
std::optional<std::vector<Email>> parseEmails(const Json& answer);
/// Those of an answer that have an address, each once.
std::vector<MailContact> parseContacts(const Json& answer);

/// What the briefing says of the mail.
struct MailSummary {
  int unread = 0;
  std::vector<std::string> subjects;  ///< of the unread ones, newest first
};
MailSummary mailSummary(const std::vector<Email>& emails);

}  // namespace kestrin
