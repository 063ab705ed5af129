#pragma once

namespace kestrin {

enum class Appearance { light, dark, system };

/// Window levels, as `setWindowLevel` takes them.
inline constexpr int normalWindowLevel = 0;
inline constexpr int floatingWindowLevel = 3;

/// What settings do to the main window. Main queue.
class MainWindowEffects {
 public:
  virtual ~MainWindowEffects() = default;
  virtual void setAppearance(Appearance appearance) = 0;
  /// Above all other windows (`floatingWindowLevel`) or among them.
  virtual void setWindowLevel(int level) = 0;
  virtual void setWindowAlpha(double alpha) = 0;  ///< 0 to 1
  virtual void setSidebarVisible(bool visible) = 0;
  virtual void setCompactMode(bool compact) = 0;
  /// Whether our windows have an entry in the taskbar.
  virtual void setTaskbarEntry(bool shown) = 0;
  /// Every window is drawn anew, and the current page is built anew.
  virtual void redisplay() = 0;
};

}  // namespace kestrin
