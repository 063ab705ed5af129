#include "home/mail/compose_email_panel.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

bool matches(const MailContact& contact, const std::string& typed) {
  return text::containsAny(text::lower(contact.name + "\n" + contact.email), {typed});
}

}  // namespace

void ComposeEmailPanel::clear() {
  ++searches_;
  searchTimer_.reset();
  toField_.clear();
  subjectField.clear();
  bodyField.clear();
  threadId_.clear();
  message_.clear();
  reason_.clear();
  suggestions_.clear();
}

void ComposeEmailPanel::show(const std::optional<Email>& replyTo) {
  isOpen_ = true;
  if (isSending_) return changed();
  clear();
  if (replyTo) {
    toField_ = replyTo->from;
    subjectField = "Re: " + replyTo->subject;
    bodyField = "\n\n\n———— Original Message ————\nFrom: " + replyTo->sender() + "\n" +
                replyTo->date + "\n" +
                (replyTo->bodyPreview.empty() ? replyTo->snippet : replyTo->bodyPreview);
    threadId_ = replyTo->threadId;
  }
  fetchContactsForAutocomplete();
  changed();
}

void ComposeEmailPanel::close() {
  isOpen_ = false;
  if (!isSending_) clear();
  changed();
}

void ComposeEmailPanel::fetchContactsForAutocomplete() {
  client_.frequentContacts(
      lifetime_.guard([this](const Result<std::vector<MailContact>>& contacts) {
        if (!contacts)
          return logger_.print("⚠️ Contacts not loaded: " + contacts.error().description);
        frequent_ = *contacts;
      }));
}

void ComposeEmailPanel::recipientTyped(const std::string& text) {
  toField_ = text;
  message_.clear();
  ++searches_;
  searchTimer_.reset();
  suggestions_.clear();
  const std::string typed = text::trim(text);
  if (!typed.empty()) {
    suggest(frequent_);
    searchTimer_ = dispatch_.after(dispatch_.mainQueue(), searchPause,
                                   lifetime_.guard([this, typed] { searchContacts(typed); }));
  }
  changed();
}

void ComposeEmailPanel::searchContacts(const std::string& query) {
  client_.searchContacts(
      query,
      lifetime_.guard([this, search = searches_](const Result<std::vector<MailContact>>& found) {
        if (search != searches_) return;
        if (!found) return logger_.print("⚠️ Contacts not found: " + found.error().description);
        suggest(*found);
        changed();
      }));
}

/// Adds those that match what is typed and are not there yet.
void ComposeEmailPanel::suggest(const std::vector<MailContact>& found) {
  const std::string typed = text::lower(text::trim(toField_));
  for (const MailContact& contact : found) {
    const bool there = std::any_of(suggestions_.begin(), suggestions_.end(),
                                   [&](const auto& each) { return each.email == contact.email; });
    if (!there && suggestions_.size() < mostSuggestions && matches(contact, typed))
      suggestions_.push_back(contact);
  }
}

void ComposeEmailPanel::chooseSuggestion(size_t index) {
  if (index >= suggestions_.size()) return;
  const std::string email = suggestions_[index].email;
  ++searches_;
  searchTimer_.reset();
  suggestions_.clear();
  toField_ = email;
  changed();
}

void ComposeEmailPanel::sendEmailClicked() {
  if (!isOpen_ || isSending_) return;
  const std::string recipient = text::trim(toField_);
  message_.clear();
  reason_.clear();
  if (recipient.empty() || text::trim(subjectField).empty()) {
    message_ = missingFields;
    return changed();
  }
  isSending_ = true;
  client_.sendEmail(
      {recipient, subjectField, bodyField, threadId_},
      lifetime_.guard([this, recipient](const Status& status) { sent(recipient, status); }));
  changed();
}

void ComposeEmailPanel::sent(const std::string& recipient, const Status& status) {
  isSending_ = false;
  isOpen_ = !status;
  if (status) {
    clear();
  } else {
    message_ = sendFailed;
    reason_ = status.error().description;
  }
  if (onStatus) onStatus(status ? "✅ Email sent to " + recipient : sendFailed, !status);
  changed();
}

}  // namespace kestrin
