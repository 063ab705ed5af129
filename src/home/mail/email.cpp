#include "home/mail/email.h"

#include <set>

#include "platform/http.h"

namespace kestrin {

Email Email::fromJson(const Json& json) {
  return {json.stringAt("id", ""),
          json.stringAt("threadId", ""),
          json.stringAt("from", ""),
          json.stringAt("fromName", ""),
          json.stringAt("subject", ""),
          json.stringAt("date", ""),
          json.stringAt("snippet", ""),
          json.stringAt("bodyPreview", ""),
          json.boolAt("isUnread").value_or(false)};
}

std::string Email::sender() const {
  if (!fromName.empty()) return fromName;
  return from.empty() ? "Unknown" : from;
}

std::string Email::shownSubject() const { return subject.empty() ? "(No subject)" : subject; }

std::string Email::webAddress() const {
  return "https://mail.google.com/mail/u/0/#inbox/" + urlEncode(id);
}

std::optional<std::vector<Email>> parseEmails(const Json& answer) {
  const Json* messages = answer.find("messages");
  if (!messages || !messages->isArray()) return std::nullopt;
  std::vector<Email> emails;
  for (const Json* message : answer.objectsAt("messages"))
    emails.push_back(Email::fromJson(*message));
  return emails;
}

std::vector<MailContact> parseContacts(const Json& answer) {
  std::vector<MailContact> contacts;
  std::set<std::string> seen;
  for (const Json* contact : answer.objectsAt("contacts")) {
    const std::string email = contact->stringAt("email", "");
    if (!email.empty() && seen.insert(email).second)
      contacts.push_back({contact->stringAt("name", ""), email});
  }
  return contacts;
}

MailSummary mailSummary(const std::vector<Email>& emails) {
  MailSummary summary;
  for (const Email& email : emails) {
    if (!email.isUnread) continue;
    ++summary.unread;
    summary.subjects.push_back(email.subject);
  }
  return summary;
}

}  // namespace kestrin
