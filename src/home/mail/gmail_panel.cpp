#include "home/mail/gmail_panel.h"

#include <utility>

#include "platform/dispatch/background.h"

namespace kestrin {

GmailPanel::GmailPanel(Services services)
    : services_(std::move(services)),
      client_(services_.dispatch, services_.http, services_.logger, services_.deviceId,
              services_.backend),
      compose_(services_.dispatch, client_, services_.logger) {
  compose_.onChange = [this] { changed(); };
  compose_.onStatus = [this](const std::string& text, bool failed) { status(text, failed); };
}

void GmailPanel::start() {
  checkGmailAccessAndLoadEmails();
  refreshTimer_ = services_.dispatch.every(services_.dispatch.mainQueue(), refreshInterval,
                                           lifetime_.guard([this] {
                                             if (hasGmailAccess_ && !isLoading_)
                                               checkGmailAccessAndLoadEmails();
                                           }));
}

std::string GmailPanel::prompt() const {
  return wasAnswered_ && !hasGmailAccess_ ? connectPrompt : "";
}

void GmailPanel::checkGmailAccessAndLoadEmails(std::function<void()> completion) {
  if (completion) whenLoaded_.push_back(std::move(completion));
  isLoading_ = true;
  client_.status(lifetime_.guard([this, load = ++loads_](const Result<GmailStatus>& answer) {
    if (load == loads_) statusArrived(answer);
  }));
  changed();
}

void GmailPanel::statusArrived(const Result<GmailStatus>& answer) {
  if (!answer) {
    const Error& error = answer.error();
    const bool unreadable =
        error.domain == GmailClient::domain && error.code == GmailClient::unreadable;
    services_.logger.print(unreadable ? "❌ Gmail status: Invalid response"
                                      : "❌ Gmail status check failed: " + error.description);
    return endLoading(error.description);
  }
  services_.logger.print(std::string("📧 Gmail access: ") + (answer->hasAccess ? "true" : "false") +
                         ", unread: " + std::to_string(answer->unreadCount));
  wasAnswered_ = true;
  hasGmailAccess_ = answer->hasAccess;
  services_.settings.set("hasGmailAccess", hasGmailAccess_);
  if (hasGmailAccess_) return fetchRecentEmails();
  cachedEmails_.clear();
  summary_.clear();
  endLoading("");
}

void GmailPanel::fetchRecentEmails() {
  client_.messages(
      shownEmails, lifetime_.guard([this, load = loads_](const Result<std::vector<Email>>& emails) {
        if (load != loads_) return;
        if (!emails) {
          services_.logger.print("❌ Recent emails not loaded: " + emails.error().description);
          return endLoading(emails.error().description);
        }
        cachedEmails_ = *emails;
        if (cachedEmails_.size() > shownEmails) cachedEmails_.resize(shownEmails);
        endLoading("");
      }));
}

void GmailPanel::endLoading(const std::string& problem) {
  isLoading_ = false;
  problem_ = problem;
  changed();
  for (const auto& completion : std::exchange(whenLoaded_, {})) completion();
}

void GmailPanel::summarizeEmailsClicked() {
  if (isSummarizing_) return;
  if (!hasGmailAccess_) return status(notConnected, true);
  isSummarizing_ = true;
  status("🔊 Summarizing emails...");
  client_.summary(summarisedEmails, lifetime_.guard([this](const Result<std::string>& summary) {
    summaryArrived(summary);
  }));
  changed();
}

void GmailPanel::summaryArrived(const Result<std::string>& summary) {
  isSummarizing_ = false;
  if (summary) {
    summary_ = *summary;
    status("🔊 Reading emails...");
  } else {
    services_.logger.print("❌ Failed to get email summary");
    status("❌ Email summary: " + summary.error().description, true);
  }
  services_.speech.speakText(summary ? *summary : "Sorry, I couldn't fetch your email summary.");
  changed();
}

void GmailPanel::openEmail(const Email& email) {
  inBackground(
      services_.dispatch, services_.dispatch.globalQueue(), lifetime_,
      [&workspace = services_.workspace, url = email.webAddress()] { return workspace.open(url); },
      [this](const Status& opened) {
        if (!opened) status("❌ The message was not opened: " + opened.error().description, true);
      });
}

}  // namespace kestrin
