#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "platform/lifetime.h"
#include "platform/pasteboard.h"
#include "platform/workspace.h"
#include "research/research_run.h"
#include "research/research_sections.h"
#include "research/research_service.h"

namespace kestrin {

/// What the research page and the floating panel are made of.
struct ResearchServices {
  Dispatch& dispatch;
  Random& random;
  Logger& logger;
  ResearchService& research;
  Pasteboard& pasteboard;
  Workspace& workspace;

  /// With the user's browser; only http and https addresses. Does not wait.
  void openURL(const std::string& url) const;
  /// To the clipboard. Does not wait.
  void copy(const std::string& text) const;
};

/// The Deep Research page: past sessions at the side, a conversation in the middle. A question is
/// answered by a stream whose steps grow in one progress message; a further one carries the answers
/// so far. A conversation that is left ends its stream. Main queue only.
class ResearchView {
 public:
  static constexpr const char* welcomeTitle = "What would you like to research?";
  static constexpr const char* welcomeText =
      "AI-powered research that searches, analyzes, and synthesizes\ninformation from across the "
      "web in seconds";
  static constexpr const char* welcomeHint = "Press ⌘ + K to quickly start a new research";
  static constexpr const char* newResearchLabel = "✨  New Research";
  static const std::vector<std::string>& suggestions();

  explicit ResearchView(ResearchServices services);

  // What the page's controls do. Indexes are those of `researchSessions()`.
  void setInput(const std::string& text);
  /// The send button and the input field. A new question takes the place of a running one.
  void submitQuery();
  void suggestionClicked(size_t index);
  void historyCardClicked(size_t index);
  void newChatClicked();
  void stopResearchClicked();
  /// Asks the last question again, as if nothing had come after it.
  void regenerateClicked();
  void deleteHistoryItem(size_t index);
  /// Hands the session to `onResearchSelected`.
  void showDetails(size_t index);
  void openURL(const std::string& url) { services_.openURL(url); }
  /// The answer of this message, to the clipboard.
  void copyResult(const std::string& messageId);
  void toggleProgressExpand();

  void loadResearchHistory();
  /// Does nothing while a question is running.
  void startResearch(const std::string& query);
  void loadSession(const ResearchSession& session);
  void clearConversation();

  const std::vector<ResearchSession>& researchSessions() const { return sessions_; }
  /// The session with that id, or null.
  const ResearchSession* session(const std::string& id) const;
  std::vector<ResearchSection> sections() const;
  const std::optional<std::string>& currentSessionId() const { return currentSessionId_; }
  bool isResearching() const { return isResearching_; }
  const std::vector<ConversationMessage>& conversationMessages() const { return messages_; }
  bool progressStepsExpanded() const { return progressStepsExpanded_; }
  const std::vector<ProgressStep>& progressSteps() const { return progressSteps_; }
  bool isWelcomeShown() const { return isWelcomeShown_; }
  bool isSendButtonShown() const { return !isResearching_; }
  bool isStopButtonShown() const { return isResearching_; }
  const std::string& input() const { return input_; }
  const std::string& placeholder() const { return placeholder_; }
  /// Grows each time the input field should take the keyboard focus.
  int inputFocusRequests() const { return inputFocusRequests_; }

  /// After every change; a widget redraws.
  std::function<void()> onChange;
  std::function<void()> onNewResearch;
  std::function<void(const ResearchSession&)> onResearchSelected;

 private:
  using MessageType = ConversationMessage::MessageType;

  void performResearch(const std::string& query, const std::string& progressMessageId);
  void handleStreamEvent(const Json& event, const std::string& progressMessageId);
  void handleStreamingComplete(const std::string& summary,
                               const std::vector<ResearchSource>& sources);
  void failResearch(const std::string& text);
  void finishResearch();
  void markProgressComplete();
  void writeProgress(const std::string& messageId);
  void cancelStream();
  void saveResearchSession(const std::string& summary, const std::vector<ResearchSource>& sources);
  /// The contents of all messages of one type.
  std::vector<std::string> contents(MessageType type) const;
  ConversationMessage& append(MessageType type, const std::string& content);
  void historyLoaded(const Result<std::vector<ResearchSession>>& sessions);
  void sessionDeleted(const std::string& id);
  void render() {
    if (onChange) onChange();
  }

  const ResearchServices services_;
  std::vector<ResearchSession> sessions_;
  int historyLoads_ = 0;  ///< only the newest load counts
  bool isLoadingHistory_ = false;
  std::optional<std::string> currentSessionId_;
  bool isResearching_ = false;
  bool isWelcomeShown_ = true;
  std::vector<ConversationMessage> messages_;
  bool progressStepsExpanded_ = true;
  std::vector<ProgressStep> progressSteps_;
  std::unique_ptr<ResearchRun> run_;
  std::optional<std::string> currentProgressMessageId_;
  std::string input_;
  std::string placeholder_;
  int inputFocusRequests_ = 0;
  Lifetime lifetime_;
};

}  // namespace kestrin
