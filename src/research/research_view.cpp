#include "research/research_view.h"

#include <algorithm>
#include <utility>

#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr const char* firstPlaceholder = "Ask anything...";
constexpr const char* followUpPlaceholder = "Ask a follow-up question...";
constexpr const char* stoppedPlaceholder = "Edit and resubmit, or ask something new...";

}  // namespace

const std::vector<std::string>& ResearchView::suggestions() {
  static const std::vector<std::string> cards = {
      "What changed in renewable energy this year?",
      "Compare electric cars and hybrids for a family of four",
      "How do large language models use tools?",
      "What does current research say about sleep and memory?",
  };
  return cards;
}

ResearchView::ResearchView(ResearchServices services)
    : services_(services), placeholder_(firstPlaceholder) {}

void ResearchView::setInput(const std::string& text) {
  input_ = text;
  render();
}

void ResearchView::submitQuery() {
  const std::string query = text::trim(input_);
  if (query.empty()) return;
  cancelStream();
  startResearch(query);
}

void ResearchView::suggestionClicked(size_t index) {
  if (index >= suggestions().size()) return;
  setInput(suggestions()[index]);
  submitQuery();
}

void ResearchView::startResearch(const std::string& query) {
  if (isResearching_) return;
  isWelcomeShown_ = false;
  input_.clear();
  placeholder_ = followUpPlaceholder;
  isResearching_ = true;
  if (!currentSessionId_) currentSessionId_ = services_.random.uuid();
  progressSteps_.clear();
  append(MessageType::user, query);
  ConversationMessage& progress = append(MessageType::progress, "");
  progress.progressSteps.emplace();
  currentProgressMessageId_ = progress.id;
  render();
  performResearch(query, *currentProgressMessageId_);
}

void ResearchView::performResearch(const std::string& query, const std::string& progressMessageId) {
  if (!services_.research.isConfigured()) return failResearch("Configuration error");
  services_.logger.print("🔍 Starting streaming research: " + query);
  run_ = std::make_unique<ResearchRun>(
      services_.dispatch, services_.research, query,
      text::join(contents(MessageType::result), "\n\n"),
      ResearchRun::Callbacks{
          [this, progressMessageId](const Json& event) {
            handleStreamEvent(event, progressMessageId);
          },
          [this](const std::string& summary, const std::vector<ResearchSource>& sources) {
            handleStreamingComplete(summary, sources);
          },
          [this](const std::string& text) { failResearch(text); }});
}

void ResearchView::handleStreamEvent(const Json& event, const std::string& progressMessageId) {
  auto step = ProgressStep::fromEvent(event);
  if (!step) return;
  step->id = services_.random.uuid();
  progressSteps_.push_back(std::move(*step));
  writeProgress(progressMessageId);
  render();
}

void ResearchView::handleStreamingComplete(const std::string& summary,
                                           const std::vector<ResearchSource>& sources) {
  append(MessageType::result, summary).sources = sources;
  saveResearchSession(summary, sources);
  finishResearch();
  render();
}

void ResearchView::failResearch(const std::string& text) {
  append(MessageType::error, text);
  finishResearch();
  render();
}

void ResearchView::finishResearch() {
  markProgressComplete();
  run_.reset();
  isResearching_ = false;
  placeholder_ = followUpPlaceholder;
}

void ResearchView::markProgressComplete() {
  for (ProgressStep& step : progressSteps_) step.isComplete = true;
  if (currentProgressMessageId_) writeProgress(*currentProgressMessageId_);
  currentProgressMessageId_.reset();
}

void ResearchView::writeProgress(const std::string& messageId) {
  for (ConversationMessage& message : messages_) {
    if (message.id == messageId) message.progressSteps = progressSteps_;
  }
}

void ResearchView::stopResearchClicked() {
  if (!isResearching_) return;
  services_.logger.print("🛑 Research stopped by user");
  append(MessageType::error, "Research stopped. Edit your query and try again.");
  finishResearch();
  placeholder_ = stoppedPlaceholder;
  render();
  services_.dispatch.mainQueue()->post(lifetime_.guard([this] {
    ++inputFocusRequests_;
    render();
  }));
}

/// Without a word: what takes the running question's place says it all.
void ResearchView::cancelStream() {
  if (isResearching_) finishResearch();
}

void ResearchView::regenerateClicked() {
  const auto last = std::find_if(messages_.rbegin(), messages_.rend(), [](const auto& message) {
    return message.type == MessageType::user;
  });
  if (last == messages_.rend()) return;
  cancelStream();
  const std::string query = last->content;
  messages_.erase(std::prev(last.base()), messages_.end());
  progressSteps_.clear();
  startResearch(query);
}

void ResearchView::copyResult(const std::string& messageId) {
  for (const ConversationMessage& message : messages_) {
    if (message.id == messageId) services_.copy(message.content);
  }
}

void ResearchView::toggleProgressExpand() {
  progressStepsExpanded_ = !progressStepsExpanded_;
  render();
}

void ResearchView::newChatClicked() {
  clearConversation();
  if (onNewResearch) onNewResearch();
}

void ResearchView::clearConversation() {
  cancelStream();
  messages_.clear();
  progressSteps_.clear();
  currentSessionId_.reset();
  isWelcomeShown_ = true;
  placeholder_ = firstPlaceholder;
  render();
}

void ResearchView::historyCardClicked(size_t index) {
  if (index < sessions_.size()) loadSession(sessions_[index]);
}

void ResearchView::showDetails(size_t index) {
  if (index < sessions_.size() && onResearchSelected) onResearchSelected(sessions_[index]);
}

void ResearchView::loadSession(const ResearchSession& session) {
  cancelStream();
  currentSessionId_ = session.id;
  progressSteps_.clear();
  messages_.clear();
  const auto questions = text::split(session.query, ResearchSession::questionSeparator);
  // Only the latest answer is kept; it stands where the conversation began.
  append(MessageType::user, questions.front());
  append(MessageType::result, session.summary).sources = session.sources;
  for (size_t i = 1; i < questions.size(); ++i) append(MessageType::user, questions[i]);
  isWelcomeShown_ = false;
  placeholder_ = followUpPlaceholder;
  render();
}

ConversationMessage& ResearchView::append(MessageType type, const std::string& content) {
  messages_.push_back({.id = services_.random.uuid(), .type = type, .content = content});
  return messages_.back();
}

std::vector<std::string> ResearchView::contents(MessageType type) const {
  std::vector<std::string> out;
  for (const ConversationMessage& message : messages_) {
    if (message.type == type) out.push_back(message.content);
  }
  return out;
}

}  // namespace kestrin
