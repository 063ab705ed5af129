#pragma once

#include <functional>
#include <string>
#include <vector>

#include "app/status_line.h"
#include "notes/history.h"
#include "platform/user_notifications.h"
#include "research/background_research.h"
#include "research/research_panel_view.h"
#include "research/research_view.h"
#include "usermodel/preferences/main_window_effects.h"

namespace kestrin {

/// How the main window looks, as the settings want it. The window that draws it follows.
struct WindowState {
  Appearance appearance = Appearance::light;
  int level = normalWindowLevel;
  double alpha = 1;
  bool sidebarVisible = true;
  bool compactMode = false;
  bool taskbarEntry = true;
  int redisplays = 0;  ///< each one asks for all windows to be drawn anew

  bool operator==(const WindowState&) const = default;
};

/// What the main window shows and where it is. A view draws it. Main queue only.
class MainWindowController final : public MainWindowEffects {
 public:
  static constexpr const char* researchTab = "Research";

  MainWindowController(History::Services services, ResearchServices research,
                       std::string holdKeyName);

  void updateStatus(const std::string& text, StatusColor color);
  void updateDetectedMode(const std::string& mode);
  void resetDetectedMode();
  void navigateToTab(const std::string& tab);

  void setAppearance(Appearance appearance) override {
    setWindow(&WindowState::appearance, appearance);
  }
  void setWindowLevel(int level) override { setWindow(&WindowState::level, level); }
  void setWindowAlpha(double alpha) override { setWindow(&WindowState::alpha, alpha); }
  void setSidebarVisible(bool visible) override {
    setWindow(&WindowState::sidebarVisible, visible);
  }
  void setCompactMode(bool compact) override { setWindow(&WindowState::compactMode, compact); }
  void setTaskbarEntry(bool shown) override { setWindow(&WindowState::taskbarEntry, shown); }
  void redisplay() override { setWindow(&WindowState::redisplays, window_.redisplays + 1); }

  // The history page; see History.
  void addHistoryEntry(const std::string& mode, const std::string& input, const std::string& output,
                       const std::string& appContext) {
    history_.addHistoryEntry(mode, input, output, appContext);
  }
  void fetchHistoryFromServer() { history_.fetchHistoryFromServer(); }
  void mergeHistory(const std::vector<HistoryEntry>& serverEntries) {
    history_.mergeHistory(serverEntries);
  }
  std::vector<HistoryDay> groupEntriesByDate() const { return history_.groupEntriesByDate(); }
  void fetchModeHistogram(const std::string& userId) { history_.fetchModeHistogram(userId); }
  /// Newest first.
  const std::vector<HistoryEntry>& historyEntries() const { return history_.historyEntries(); }
  /// The lines of an empty history page, with the name of the hold key.
  std::vector<std::string> historyEmptyText() const;
  History& history() { return history_; }

  // Research: the page, the floating panel, and jobs that the agent does by itself.
  void startBackgroundResearch(const std::string& query) { background_.start(query); }
  /// Watches a job that the agent has started already.
  void watchBackgroundResearch(const std::string& jobId) { background_.watch(jobId); }
  /// A panel titled ResearchPanelView::detailTitle.
  void showResearchSessionDetail(const ResearchSession& session) {
    researchDetail_.showSession(session);
  }
  /// The research page, with that session where the history has it.
  void openResearch(const std::string& sessionId);
  ResearchView& research() { return research_; }
  ResearchPanelView& researchPanel() { return researchPanel_; }
  ResearchPanelView& researchDetail() { return researchDetail_; }
  const BackgroundResearch& backgroundResearch() const { return background_; }

  const StatusLine& status() const { return status_; }
  /// Empty when there is none.
  const std::string& detectedMode() const { return detectedMode_; }
  const std::string& currentTab() const { return currentTab_; }
  const WindowState& window() const { return window_; }

  /// After every change; a view redraws.
  std::function<void()> onChange;
  /// After each status line, also when it says the same again.
  std::function<void(const StatusLine&)> onStatus;
  /// Something to tell the user outside the window. `userInfo` comes back with a click on it.
  std::function<void(UserNotification notification, Json userInfo)> onNotification;

 private:
  void setupResearchView();
  void onBackgroundResearchComplete(const std::string& jobId, const std::string& query);
  template <class T>
  void setWindow(T WindowState::*field, T value) {
    if (window_.*field == value) return;
    window_.*field = value;
    changed();
  }
  void changed() {
    if (onChange) onChange();
  }

  const std::string holdKeyName_;
  StatusLine status_;
  std::string detectedMode_;
  std::string currentTab_ = "home";
  WindowState window_;
  History history_;
  ResearchView research_;
  ResearchPanelView researchPanel_;
  ResearchPanelView researchDetail_;
  BackgroundResearch background_;
};

}  // namespace kestrin
