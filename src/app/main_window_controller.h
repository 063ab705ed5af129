#pragma once

#include <deque>
#include <functional>
#include <string>

#include "app/status_line.h"
#include "platform/dates/dates.h"
#include "platform/dispatch/dispatch.h"
#include "platform/files.h"
#include "usermodel/preferences/main_window_effects.h"

namespace kestrin {

/// One finished dictation, as the history shows it.
struct HistoryEntry {
  std::string id;
  Date timestamp;
  std::string mode;
  std::string input;   ///< what was said
  std::string output;  ///< what came out
  std::string appContext;
};

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
  static constexpr size_t maxHistoryEntries = 50;

  MainWindowController(Dispatch& dispatch, Random& random) : dispatch_(dispatch), random_(random) {}

  void updateStatus(const std::string& text, StatusColor color);
  void updateDetectedMode(const std::string& mode);
  void resetDetectedMode();
  void addHistoryEntry(const std::string& mode, const std::string& input, const std::string& output,
                       const std::string& appContext);
  void clearHistory();
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

  const StatusLine& status() const { return status_; }
  /// Empty when there is none.
  const std::string& detectedMode() const { return detectedMode_; }
  /// Newest first.
  const std::deque<HistoryEntry>& historyEntries() const { return historyEntries_; }
  const std::string& currentTab() const { return currentTab_; }
  const WindowState& window() const { return window_; }

  /// After every change; a view redraws.
  std::function<void()> onChange;
  /// After each status line, also when it says the same again.
  std::function<void(const StatusLine&)> onStatus;

 private:
  template <class T>
  void setWindow(T WindowState::*field, T value) {
    if (window_.*field == value) return;
    window_.*field = value;
    changed();
  }
  void changed() {
    if (onChange) onChange();
  }

  Dispatch& dispatch_;
  Random& random_;
  StatusLine status_;
  std::string detectedMode_;
  std::deque<HistoryEntry> historyEntries_;
  std::string currentTab_ = "home";
  WindowState window_;
};

}  // namespace kestrin
