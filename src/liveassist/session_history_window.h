#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "liveassist/live_assist_session_manager.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The window with past sessions, a card each, in the order received. Main queue only.
class SessionHistoryWindow {
 public:
  static constexpr const char* loadingText = "Loading sessions…";
  static constexpr const char* hint = "Click a session to load & continue";
  static constexpr const char* emptyText = "No sessions yet.\nStart capture to create one.";
  static constexpr const char* emailTitle = "📧 Email Report";

  struct Card {
    std::string id;
    std::string title;
    std::string summary;   ///< may be empty
    std::string date;      ///< "Mar 1, 2026, 2:30 PM"; empty when unknown
    std::string duration;  ///< "12m 5s"
    std::string counts;    ///< "3 lines • 🎤 1 seg  •  🖥 2 seg"
    std::string contact;   ///< name or address, or "No contact selected"
    std::string emailId;   ///< "email_" and the session's id; empty without a contact
    std::string emailLabel;
  };
  static Card cardOf(const LASessionRecord& record);

  SessionHistoryWindow(LiveAssistSessionManager& sessions, Logger& logger);

  /// Opens it and loads the history.
  void showSessionHistory();
  void close();
  bool isOpen() const { return isOpen_; }
  /// The line above the cards, or what stands in their place.
  std::string text() const;
  std::vector<Card> cards() const;
  void choose(const std::string& sessionId);
  /// `emailId` of a card.
  void emailReport(const std::string& emailId);

  std::function<void()> onChange;
  /// A card was clicked.
  std::function<void(const std::string& sessionId)> onChosen;

 private:
  void changed() const {
    if (onChange) onChange();
  }

  LiveAssistSessionManager& sessions_;
  Logger& logger_;
  bool isOpen_ = false;
  bool isLoading_ = false;
  std::map<std::string, std::string> emailLabels_;  ///< by session, where it is not the title
  Lifetime lifetime_;
};

}  // namespace kestrin
