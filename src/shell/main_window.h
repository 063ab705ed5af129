#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "app/application.h"
#include "platform/lifetime.h"
#include "shell/design/icons.h"
#include "shell/design/theme.h"
#include "shell/login_dialog.h"
#include "shell/pages/page.h"
#include "shell/service_strip.h"
#include "shell/start_cover.h"

namespace kestrin {

/// The window: side bar, the current page, the status line. Pages are made when they are first
/// opened, and go when the window is closed: what they show is kept by their views. Closing it
/// hides it; the application lives on in the tray.
class MainWindow final : public QMainWindow {
 public:
  explicit MainWindow(Application& application);
  ~MainWindow() override;

  /// Shows it in front of the others.
  void bringToFront();
  /// Something may have changed. Drawn once, when the loop comes round.
  void scheduleRefresh();
  /// The titles of the pages in the side bar, in order.
  std::vector<std::string> pageTitles() const;

  /// Before a page comes on screen, with its title.
  std::function<void(const std::string&)> onPage;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  struct Entry {
    const char* title;  ///< also the name of the tab
    Glyph glyph;
    bool developer;  ///< only in developer mode
    std::function<Page*()> make;
    ServiceWatch::Services needs = {};
    QToolButton* button = nullptr;
    Page* page = nullptr;
  };

  QWidget* makeSidebar();
  QWidget* makeStatusBar();
  void refresh();
  void applyLook();
  void applyWindowState();
  /// Titles beside the pictures where there is room.
  void fitSidebar();
  void showCurrentPage();
  /// Their memory goes back to the system.
  void dropPages();
  void showStatus();
  void showAccount();
  void accountClicked();
  void fetchUsage();
  bool developerMode() const;

  Application& application_;
  const bool systemIsDark_;
  std::vector<Entry> entries_;
  QWidget* sidebar_;
  QStackedWidget* pages_;
  QToolButton* account_;
  QLabel* statusDot_;
  QLabel* status_;
  QLabel* mode_;
  std::string current_;  ///< title of the page on screen
  LoginDialog* login_ = nullptr;
  QPointer<QDialog> googleAccount_;
  StartCover* cover_;
  ServiceStrip* strip_;
  std::optional<Theme> theme_;
  std::optional<WindowState> shown_;
  QTimer refreshTimer_;
  Lifetime lifetime_;
};

}  // namespace kestrin
