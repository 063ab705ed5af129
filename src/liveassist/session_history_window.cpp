#include "liveassist/session_history_window.h"

#include "platform/dates/dates.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* source = "LiveAssist";
constexpr std::string_view emailPrefix = "email_";

/// A summariser that answered with its own instructions.
bool isPlaceholderTitle(const std::string& title) {
  return text::containsAny(title, {"<max", "no quote", "[your"});
}
bool isPlaceholderSummary(const std::string& summary) {
  return text::containsAny(summary, {"<one short", "18 words", "[your"});
}

std::string durationText(int64_t milliseconds) {
  const int64_t seconds = milliseconds / 1000;
  const std::string rest = std::to_string(seconds % 60) + "s";
  return seconds < 60 ? rest : std::to_string(seconds / 60) + "m " + rest;
}

}  // namespace

SessionHistoryWindow::SessionHistoryWindow(LiveAssistSessionManager& sessions, Logger& logger)
    : sessions_(sessions), logger_(logger) {
  sessions_.onHistoryLoaded = lifetime_.guard([this] {
    isLoading_ = false;
    if (isOpen_) changed();
  });
}

SessionHistoryWindow::Card SessionHistoryWindow::cardOf(const LASessionRecord& record) {
  Card card;
  card.id = record.id;
  card.title = record.title;
  if (card.title.empty() || isPlaceholderTitle(card.title)) {
    card.title = record.contactName.empty()
                     ? "Live Session (" + std::to_string(record.transcriptCount) + " segments)"
                     : "Session with " + record.contactName;
  }
  if (!isPlaceholderSummary(record.summary)) card.summary = record.summary;
  if (record.startTime) card.date = dates::format(*record.startTime, "MMM d, yyyy, h:mm a");
  card.duration = durationText(record.totalDurationMs);
  card.counts = "🎤 " + std::to_string(record.microphoneCount) + " seg  •  🖥 " +
                std::to_string(record.systemAudioCount) + " seg";
  if (record.contactEmail.empty()) {
    card.contact = "No contact selected";
  } else {
    card.contact = record.contactName.empty() ? record.contactEmail : record.contactName;
    card.emailId = std::string(emailPrefix) + record.id;
    card.emailLabel = emailTitle;
  }
  return card;
}

void SessionHistoryWindow::showSessionHistory() {
  isOpen_ = true;
  isLoading_ = sessions_.cachedSessions().empty();
  emailLabels_.clear();
  changed();
  sessions_.loadHistory();
}

void SessionHistoryWindow::close() {
  isOpen_ = false;
  changed();
}

std::string SessionHistoryWindow::text() const {
  if (isLoading_) return loadingText;
  return sessions_.cachedSessions().empty() ? emptyText : hint;
}

std::vector<SessionHistoryWindow::Card> SessionHistoryWindow::cards() const {
  std::vector<Card> cards;
  for (const Json& session : sessions_.cachedSessions()) {
    const auto record = LASessionRecord::fromJson(session);
    if (!record) continue;
    cards.push_back(cardOf(*record));
    const auto label = emailLabels_.find(record->id);
    if (label != emailLabels_.end()) cards.back().emailLabel = label->second;
  }
  return cards;
}

void SessionHistoryWindow::choose(const std::string& sessionId) {
  close();
  if (onChosen) onChosen(sessionId);
}

void SessionHistoryWindow::emailReport(const std::string& emailId) {
  if (!emailId.starts_with(emailPrefix)) return;
  const std::string sessionId = emailId.substr(emailPrefix.size());
  emailLabels_[sessionId] = "Sending...";
  changed();
  sessions_.emailSessionReport(sessionId, lifetime_.guard([this, sessionId](const Status& sent) {
    if (sent) {
      emailLabels_.erase(sessionId);
      logger_.log(source, LogLevel::info, "Report emailed for session " + sessionId);
    } else {
      emailLabels_[sessionId] = "Email Failed";
      logger_.log(source, LogLevel::error, "Email delivery failed: " + sent.error().description);
    }
    changed();
  }));
}

}  // namespace kestrin
