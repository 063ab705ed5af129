#include "shell/main_window.h"

#include <QApplication>
#include <QCloseEvent>
#include <QMenu>
#include <malloc.h>

#include "platform/dispatch/background.h"
#include "platform/text/text.h"
#include "shell/google_account_dialog.h"
#include "shell/pages/calendar_page.h"
#include "shell/pages/calls_page.h"
#include "shell/pages/history_page.h"
#include "shell/pages/home_page.h"
#include "shell/pages/live_assist_page.h"
#include "shell/pages/logs_page.h"
#include "shell/pages/modes_page.h"
#include "shell/pages/notes_page.h"
#include "shell/pages/personality_page.h"
#include "shell/pages/research_page.h"
#include "shell/pages/settings_page.h"
#include "shell/pages/terminal_page.h"

namespace kestrin {
namespace {

constexpr int sidebarWidth = 196;
constexpr int sidebarIconsWidth = 60;
constexpr QSize firstSize(1080, 720);
constexpr QSize leastSize(600, 440);
/// A narrower window has pictures alone in its side bar.
constexpr int narrow = 860;

QColor statusColor(const Theme& theme, StatusColor color) {
  switch (color) {
    case StatusColor::red:
      return theme.red;
    case StatusColor::orange:
      return theme.orange;
    case StatusColor::blue:
      return theme.blue;
    case StatusColor::primary:
      break;
  }
  return theme.accent;
}

}  // namespace

MainWindow::MainWindow(Application& application)
    : application_(application),
      systemIsDark_(QApplication::palette().color(QPalette::Window).lightness() < 128),
      pages_(new QStackedWidget),
      account_(new QToolButton),
      statusDot_(makeLabel("●")),
      status_(makeLabel("")),
      mode_(makeLabel("", "badge")),
      strip_(new ServiceStrip(application.serviceWatch())) {
  auto& window = application.mainWindow();
  auto& pages = application.pages();
  const auto openURL = [&window](const std::string& url) { window.research().openURL(url); };
  using Service = ServiceWatch::Service;
  entries_ = {
      {"Home",
       Glyph::home,
       false,
       [&application, &pages, openURL] {
         return new HomePage(pages.home().view(), pages.home().gmail(), application.calls(),
                             openURL, [&application] { application.manageAccount(); });
       },
       {Service::agent, Service::records}},
      {"Calendar",
       Glyph::calendar,
       false,
       [&pages] { return new CalendarPage(pages.home().calendarView()); },
       {Service::records}},
      {"Live Assist",
       Glyph::liveAssist,
       false,
       [&application, &pages] {
         return new LiveAssistPage(pages.liveAssist(), application.core().behavioralProfile);
       },
       {Service::recogniser, Service::records}},
      {Calls::callsTab,
       Glyph::calls,
       false,
       [&application] { return new CallsPage(application.calls()); },
       {Service::records}},
      {MainWindowController::researchTab,
       Glyph::research,
       false,
       [&window] { return new ResearchPage(window.research()); },
       {Service::records}},
      {"Notes",
       Glyph::notes,
       false,
       [&pages, openURL] { return new NotesPage(pages.notes(), openURL); },
       {Service::recogniser, Service::agent, Service::records}},
      {"History",
       Glyph::history,
       false,
       [this, &window] { return new HistoryPage(window, [this] { fetchUsage(); }); },
       {Service::records}},
      {"Modes",
       Glyph::modes,
       false,
       [&pages] { return new ModesPage(pages.modes()); },
       {Service::agent}},
      {"Personality",
       Glyph::personality,
       false,
       [&pages] { return new PersonalityPage(pages.personality()); },
       {Service::recogniser, Service::records}},
      {"Settings", Glyph::settings, false,
       [&pages] { return new SettingsPage(pages.preferences()); }},
      {"Terminal", Glyph::terminal, true, [&pages] { return new TerminalPage(pages.terminal()); }},
      {"Logs", Glyph::logs, true, [&pages] { return new LogsPage(pages.logs()); }},
  };
  setWindowTitle("Kestrin");
  setMinimumSize(leastSize);
  resize(firstSize);
  auto* whole = new QWidget;
  whole->setProperty("role", "window");
  whole->setAttribute(Qt::WA_StyledBackground);
  setCentralWidget(whole);
  auto* row = new QHBoxLayout(whole);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(0);
  sidebar_ = makeSidebar();
  row->addWidget(sidebar_);
  auto* content = new QVBoxLayout;
  content->setSpacing(0);
  content->addWidget(strip_);
  content->addWidget(pages_, 1);
  content->addWidget(makeStatusBar());
  row->addLayout(content, 1);
  strip_->mayAsk = [&application] { return application.delegate().isAppReady; };
  strip_->onBack = [this] {
    if (auto* page = static_cast<Page*>(pages_->currentWidget())) page->reload();
  };
  cover_ = new StartCover(application.setup(), application.startSequence().loadingOverlay(), whole);
  refreshTimer_.setSingleShot(true);
  refreshTimer_.setInterval(0);
  connect(&refreshTimer_, &QTimer::timeout, this, [this] { refresh(); });
  application.onManageAccount = [this] {
    if (googleAccount_ == nullptr)
      googleAccount_ = new GoogleAccountDialog(application_.pages().home().googleAccount(), this);
    googleAccount_->show();
    googleAccount_->raise();
    googleAccount_->activateWindow();
  };
  applyLook();
}

MainWindow::~MainWindow() {
  application_.onManageAccount = nullptr;
  refreshTimer_.stop();
}

QWidget* MainWindow::makeSidebar() {
  auto* bar = new QWidget;
  bar->setProperty("role", "sidebar");
  bar->setAccessibleName("Pages");
  bar->setAttribute(Qt::WA_StyledBackground);
  auto* column = new QVBoxLayout(bar);
  column->setContentsMargins(10, 16, 10, 12);
  column->setSpacing(2);
  for (Entry& entry : entries_) {
    auto* button = new QToolButton;
    button->setProperty("role", "nav");
    button->setText(entry.title);
    button->setAccessibleName(entry.title);
    button->setToolTip(entry.title);
    button->setCheckable(true);
    button->setAutoExclusive(true);
    button->setCursor(Qt::PointingHandCursor);
    button->setIconSize({20, 20});
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    // Assistive programs toggle it; a click is not the only way.
    connect(button, &QToolButton::toggled, this, [this, title = entry.title](bool on) {
      if (on && current_ != title) application_.mainWindow().navigateToTab(title);
    });
    entry.button = button;
    column->addWidget(button);
  }
  column->addStretch(1);
  account_->setProperty("role", "nav");
  account_->setIconSize({20, 20});
  account_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  connect(account_, &QToolButton::clicked, this, [this] { accountClicked(); });
  column->addWidget(account_);
  return bar;
}

QWidget* MainWindow::makeStatusBar() {
  auto* bar = new QWidget;
  bar->setProperty("role", "bar");
  bar->setAttribute(Qt::WA_StyledBackground);
  auto* row = new QHBoxLayout(bar);
  row->setContentsMargins(16, 7, 16, 7);
  statusDot_->setAccessibleName("State");
  status_->setAccessibleName("Status");
  row->addWidget(statusDot_);
  row->addWidget(status_, 1);
  row->addWidget(mode_);
  return bar;
}

std::vector<std::string> MainWindow::pageTitles() const {
  std::vector<std::string> titles;
  for (const Entry& entry : entries_) {
    if (!entry.developer || developerMode()) titles.emplace_back(entry.title);
  }
  return titles;
}

bool MainWindow::developerMode() const {
  return application_.core().platform.settings.boolean("pref_debugMode");
}

void MainWindow::bringToFront() {
  refresh();
  if (isMinimized()) showNormal();
  show();
  raise();
  activateWindow();
}

void MainWindow::closeEvent(QCloseEvent* event) {
  hide();
  event->ignore();
  // Not from within a page that closes the window.
  QTimer::singleShot(0, this, [this] { dropPages(); });
}

void MainWindow::dropPages() {
  // A question that waits for its answer belongs to its page.
  if (isVisible() || QApplication::activeModalWidget() != nullptr) return;
  for (Entry& entry : entries_) {
    if (entry.page == nullptr || entry.page->isKept()) continue;
    delete entry.page;
    entry.page = nullptr;
  }
  current_.clear();
  malloc_trim(0);
}

void MainWindow::showEvent(QShowEvent* event) {
  QMainWindow::showEvent(event);
  refresh();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
  QMainWindow::resizeEvent(event);
  fitSidebar();
}

void MainWindow::changeEvent(QEvent* event) {
  QMainWindow::changeEvent(event);
  if (event->type() == QEvent::ActivationChange && isActiveWindow()) application_.userWasActive();
}

void MainWindow::scheduleRefresh() {
  if (isVisible() && !refreshTimer_.isActive()) refreshTimer_.start();
}

void MainWindow::refresh() {
  if (shown_ != application_.mainWindow().window()) applyLook();
  showStatus();
  showAccount();
  showCurrentPage();
  cover_->refresh();
}

void MainWindow::applyLook() {
  const WindowState& state = application_.mainWindow().window();
  const Theme theme = Theme::from(application_.core().platform.settings, state.appearance,
                                  state.compactMode, systemIsDark_);
  if (theme_ != theme) {
    theme_ = theme;
    QApplication::setFont(theme.font());
    QApplication::setPalette(theme.palette());
    qApp->setStyleSheet(theme.styleSheet());
  }
  for (Entry& entry : entries_) entry.button->setIcon(glyphIcon(entry.glyph, theme.text));
  account_->setIcon(glyphIcon(Glyph::account, theme.muted));
  applyWindowState();
}

void MainWindow::applyWindowState() {
  const WindowState& state = application_.mainWindow().window();
  sidebar_->setVisible(state.sidebarVisible);
  fitSidebar();
  setWindowOpacity(state.alpha);
  Qt::WindowFlags flags = Qt::Window;
  // A utility window is the toolkit's way to have no entry in the taskbar.
  if (!state.taskbarEntry) flags = Qt::Tool;
  if (state.level >= floatingWindowLevel) flags |= Qt::WindowStaysOnTopHint;
  if ((windowFlags() & (Qt::Tool | Qt::WindowStaysOnTopHint)) !=
      (flags & (Qt::Tool | Qt::WindowStaysOnTopHint))) {
    const bool visible = isVisible();
    setWindowFlags(flags);
    if (visible) {
      show();
      activateWindow();
    }
  }
  shown_ = state;
}

void MainWindow::fitSidebar() {
  const bool icons = application_.mainWindow().window().compactMode || width() < narrow;
  const auto style = icons ? Qt::ToolButtonIconOnly : Qt::ToolButtonTextBesideIcon;
  for (Entry& entry : entries_) entry.button->setToolButtonStyle(style);
  account_->setToolButtonStyle(style);
  sidebar_->setFixedWidth(icons ? sidebarIconsWidth : sidebarWidth);
}

void MainWindow::showCurrentPage() {
  const std::string& wanted = application_.mainWindow().currentTab();
  Entry* current = nullptr;
  for (Entry& entry : entries_) {
    entry.button->setVisible(!entry.developer || developerMode());
    if (text::lower(entry.title) == text::lower(wanted)) current = &entry;
  }
  if (current == nullptr || (current->developer && !developerMode())) current = &entries_.front();
  if (onPage && current_ != current->title) onPage(current->title);
  if (current->page == nullptr) {
    current->page = current->make();
    current->page->setProperty("role", "page");
    current->page->setAccessibleName(current->title);
    pages_->addWidget(current->page);
  }
  current_ = current->title;
  current->button->setChecked(true);
  pages_->setCurrentWidget(current->page);
  current->page->refresh();
  strip_->showFor(current->needs);
}

void MainWindow::showStatus() {
  const StatusLine& status = application_.mainWindow().status();
  status_->setText(qt(status.text));
  statusDot_->setStyleSheet("color: " + statusColor(*theme_, status.color).name());
  statusDot_->setAccessibleDescription(QString::fromUtf8(statusColorName(status.color).data()));
  const std::string& mode = application_.mainWindow().detectedMode();
  mode_->setText(qt(mode));
  mode_->setVisible(!mode.empty());
}

void MainWindow::showAccount() {
  const auto user = application_.core().auth.currentUser();
  account_->setText(user ? qt(user->email) : "Sign in");
  account_->setAccessibleName(account_->text());
  account_->setToolTip(account_->text());
}

void MainWindow::fetchUsage() {
  CoreServices& core = application_.core();
  Dispatch& dispatch = core.platform.dispatch;
  // The first reading of the id waits for the disk.
  inBackground(
      dispatch, dispatch.globalQueue(), lifetime_,
      [&deviceId = core.deviceId] { return deviceId.deviceId(); },
      [this](const std::string& id) { application_.mainWindow().fetchModeHistogram(id); });
}

void MainWindow::accountClicked() {
  auto& auth = application_.core().auth;
  if (auth.currentUser()) {
    auto* menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->addAction("Sign out", [this, &auth] {
      auto& dispatch = application_.core().platform.dispatch;
      inBackground(
          dispatch, dispatch.globalQueue(), lifetime_,
          [&auth] {
            auth.signOut();
            return Status{};
          },
          [this](const Status&) { scheduleRefresh(); });
    });
    menu->popup(account_->mapToGlobal(QPoint(0, -8)));
    return;
  }
  auto& login = application_.pages().login();
  if (login_ == nullptr) {
    login_ = new LoginDialog(login, this);
    login.onLoginSuccess = [this](const User&) { scheduleRefresh(); };
  }
  login.show();
}

}  // namespace kestrin
