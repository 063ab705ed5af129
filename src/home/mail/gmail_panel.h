#pragma once

#include <functional>
#include <string>
#include <vector>

#include "home/mail/compose_email_panel.h"
#include "home/speech_service.h"
#include "platform/settings.h"
#include "platform/workspace.h"

namespace kestrin {

/// The user's recent mail on the home page: cards, a spoken summary, and the form to write. What is
/// shown stays when a request fails, with the reason beside it. Main queue only; must be destroyed
/// there.
class GmailPanel {
 public:
  static constexpr std::chrono::seconds refreshInterval{600};
  static constexpr int shownEmails = 3, summarisedEmails = 5;
  static constexpr const char* connectPrompt = "Connect Gmail to see emails";
  static constexpr const char* notConnected =
      "Gmail is not connected. Please connect your Gmail account in Settings.";

  struct Services {
    Dispatch& dispatch;
    Http& http;
    SettingsStore& settings;
    Logger& logger;
    DeviceIdManager& deviceId;
    SpeechService& speech;
    Workspace& workspace;
    std::string backend;  ///< base address
  };
  explicit GmailPanel(Services services);

  /// Also what "Try again" does. `completion` (may be empty) runs when it has ended.
  void checkGmailAccessAndLoadEmails(std::function<void()> completion = {});
  /// Loads now, and from then on as often as the briefing is made, while mail may be read.
  void start();
  void summarizeEmailsClicked();
  void showComposeEmailPanel(const std::optional<Email>& replyTo = std::nullopt) {
    compose_.show(replyTo);
  }
  /// In the browser.
  void openEmail(const Email& email);

  bool hasGmailAccess() const { return hasGmailAccess_; }
  const std::vector<Email>& cachedEmails() const { return cachedEmails_; }
  MailSummary mailSummary() const { return kestrin::mailSummary(cachedEmails_); }
  /// A shimmer in place of the cards, or beside those that are there.
  bool isLoading() const { return isLoading_; }
  /// In place of the cards while no mail can be read; else empty.
  std::string prompt() const;
  /// Why the last load failed; empty when it did not.
  const std::string& problem() const { return problem_; }
  bool isSummarizing() const { return isSummarizing_; }
  /// The last summary; empty before.
  const std::string& summary() const { return summary_; }
  ComposeEmailPanel& compose() { return compose_; }

  std::function<void(const std::string& text, bool failed)> onStatus;
  /// After every change, also of the form; a widget redraws.
  std::function<void()> onChange;

 private:
  void statusArrived(const Result<GmailStatus>& answer);
  void fetchRecentEmails();
  void endLoading(const std::string& problem);
  void summaryArrived(const Result<std::string>& summary);
  void status(const std::string& text, bool failed = false) {
    if (onStatus) onStatus(text, failed);
  }
  void changed() {
    if (onChange) onChange();
  }

  const Services services_;
  GmailClient client_;
  ComposeEmailPanel compose_;
  bool hasGmailAccess_ = false, wasAnswered_ = false;
  bool isLoading_ = false, isSummarizing_ = false;
  std::vector<Email> cachedEmails_;
  std::string problem_, summary_;
  int loads_ = 0;  ///< only the newest changes what is shown
  std::vector<std::function<void()>> whenLoaded_;
  TimerHandle refreshTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
