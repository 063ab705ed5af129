#include "app/main_window_controller.h"

#include <utility>

namespace kestrin {

MainWindowController::MainWindowController(History::Services services, ResearchServices research,
                                           std::string holdKeyName)
    : holdKeyName_(std::move(holdKeyName)),
      history_(services),
      research_(research),
      researchPanel_(research),
      researchDetail_(research),
      background_(research.dispatch, research.research) {
  history_.onChange = [this] { changed(); };
  setupResearchView();
}

void MainWindowController::setupResearchView() {
  const auto tell = [this] { changed(); };
  research_.onChange = tell;
  researchPanel_.onChange = tell;
  researchDetail_.onChange = tell;
  research_.onNewResearch = [this] { navigateToTab(researchTab); };
  research_.onResearchSelected = [this](const ResearchSession& session) {
    showResearchSessionDetail(session);
  };
  researchPanel_.onSaved = [this] { research_.loadResearchHistory(); };
  background_.onStatus = [this](const std::string& text, BackgroundResearch::Notice notice) {
    const bool failed = notice == BackgroundResearch::Notice::failed;
    updateStatus(text, failed ? StatusColor::orange : StatusColor::blue);
  };
  background_.onBackgroundResearchComplete = [this](const std::string& jobId,
                                                    const std::string& query) {
    onBackgroundResearchComplete(jobId, query);
  };
}

void MainWindowController::onBackgroundResearchComplete(const std::string& jobId,
                                                        const std::string& query) {
  if (onNotification) {
    onNotification({.title = "Research Complete", .body = query},
                   Json::object({{"research", jobId}}));
  }
  updateStatus("✅ Research ready — check Research tab", StatusColor::primary);
  research_.loadResearchHistory();
}

void MainWindowController::openResearch(const std::string& sessionId) {
  navigateToTab(researchTab);
  if (const ResearchSession* session = research_.session(sessionId)) {
    research_.loadSession(*session);
  }
}

void MainWindowController::updateStatus(const std::string& text, StatusColor color) {
  status_ = {text, color};
  if (onStatus) onStatus(status_);
  changed();
}

void MainWindowController::updateDetectedMode(const std::string& mode) {
  detectedMode_ = mode;
  changed();
}

void MainWindowController::resetDetectedMode() {
  detectedMode_.clear();
  changed();
}

std::vector<std::string> MainWindowController::historyEmptyText() const {
  std::vector<std::string> lines = history_.emptyText();
  // What the user searched for is not ours to reword.
  if (!historyEntries().empty()) return lines;
  for (std::string& line : lines) line = nameHoldKey(std::move(line), holdKeyName_);
  return lines;
}

void MainWindowController::navigateToTab(const std::string& tab) {
  currentTab_ = tab;
  if (tab == researchTab) research_.loadResearchHistory();
  changed();
}

}  // namespace kestrin
