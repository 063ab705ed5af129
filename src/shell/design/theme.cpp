#include "shell/design/theme.h"

#include <QFontDatabase>
#include <cmath>

#include "usermodel/preferences/design.h"

namespace kestrin {
namespace {

QColor colorOf(const DesignColor& color) {
  return QColor::fromRgbF(float(color.red), float(color.green), float(color.blue));
}

/// Of the two, the one that is read more easily on `background`.
QColor readableOn(const QColor& background) {
  const double brightness =
      0.299 * background.redF() + 0.587 * background.greenF() + 0.114 * background.blueF();
  return brightness > 0.62 ? QColor(20, 22, 24) : QColor(Qt::white);
}

QString withAlpha(QColor color, double alpha) {
  color.setAlphaF(float(alpha));
  return color.name(QColor::HexArgb);
}

constexpr const char* sheet = R"(
* { font-size: %body%px; }
QWidget[role="window"] { background: %window%; }
QWidget[role="sidebar"] { background: %sidebar%; border-right: 1px solid %border%; }
QWidget[role="bar"] { background: %sidebar%; border-top: 1px solid %border%; }
QWidget[role="page"], QScrollArea, QScrollArea > QWidget > QWidget { background: transparent; border: none; }
QFrame[role="card"] { background: %card%; border: 1px solid %border%; border-radius: 10px; }
QFrame[role="mine"] { background: %accentSoft%; border: 1px solid %border%; border-radius: 10px; }
QFrame[role="strip"] { background: %orangeSoft%; border: none; border-bottom: 1px solid %border%; }
QFrame[role="line"] { background: %border%; max-height: 1px; border: none; }
QLabel { color: %text%; background: transparent; }
QLabel[role="title"] { font-size: %title%px; font-weight: 700; }
QLabel[role="heading"] { font-size: %heading%px; font-weight: 600; }
QLabel[role="section"] { font-size: %caption%px; font-weight: 600; color: %muted%; }
QLabel[role="figure"] { font-size: %figure%px; font-weight: 700; }
QLabel[role="caption"] { font-size: %caption%px; color: %muted%; }
QLabel[role="error"] { color: %red%; }
QLabel[role="badge"] { font-size: %caption%px; color: %accentText%; background: %accentSoft%; border-radius: 8px; padding: 2px 8px; }
QLabel[role="toast"] { color: %onAccent%; background: %accent%; border-radius: 14px; padding: 6px 16px; font-weight: 600; }
QPushButton { color: %text%; background: %field%; border: 1px solid %border%; border-radius: 7px; padding: %padY%px 14px; }
QPushButton:hover { border-color: %accent%; }
QPushButton:pressed { background: %accentSoft%; }
QPushButton:focus { border: 2px solid %accent%; padding: %padYf%px 13px; }
QPushButton:disabled { color: %muted%; }
QPushButton[role="primary"] { color: %onAccent%; background: %accent%; border: 1px solid %accent%; font-weight: 600; }
QPushButton[role="primary"]:hover { background: %accentStrong%; }
QPushButton[role="primary"]:disabled { background: %border%; border-color: %border%; color: %muted%; }
QPushButton[role="primary"]:focus { border: 2px solid %text%; }
QPushButton[role="quiet"], QToolButton { background: transparent; border: 1px solid transparent; border-radius: 7px; padding: 4px 8px; color: %muted%; }
QPushButton[role="quiet"]:hover, QToolButton:hover { background: %hover%; color: %text%; }
QPushButton[role="quiet"]:focus, QToolButton:focus { border: 1px solid %accent%; }
QPushButton[role="tile"] { background: %card%; border: 1px solid %border%; border-radius: 10px; padding: 12px; text-align: left; }
QPushButton[role="tile"]:hover { border-color: %accent%; }
QPushButton[role="tile"]:focus { border: 2px solid %accent%; }
QPushButton[role="segment"] { padding: 4px 12px; }
QPushButton[role="segment"]:checked { border: 1px solid %accent%; background: %accentSoft%; }
QToolButton[role="nav"] { text-align: left; padding: %navY%px 10px; color: %text%; border-radius: 8px; }
QToolButton[role="nav"]:checked { background: %accentSoft%; color: %accentText%; font-weight: 600; }
QLineEdit, QPlainTextEdit, QTextEdit, QComboBox, QDateEdit, QTimeEdit { color: %text%; background: %field%; border: 1px solid %border%; border-radius: 7px; padding: %padY%px 8px; selection-background-color: %accent%; selection-color: %onAccent%; }
QLineEdit:focus, QPlainTextEdit:focus, QTextEdit:focus, QComboBox:focus { border: 1px solid %accent%; }
QComboBox::drop-down { border: none; width: 24px; }
QComboBox QAbstractItemView { color: %text%; background: %card%; border: 1px solid %border%; selection-background-color: %accentSoft%; selection-color: %text%; outline: none; }
QTextBrowser[role="reading"] { background: transparent; border: none; padding: 0; }
QCheckBox, QRadioButton { color: %text%; spacing: 8px; }
QListWidget, QTableView, QTreeView { color: %text%; background: %card%; alternate-background-color: %field%; border: 1px solid %border%; border-radius: 8px; outline: none; gridline-color: %border%; }
QListWidget::item { padding: 7px 8px; border-radius: 6px; }
QListWidget::item:hover { background: %hover%; }
QListWidget::item:selected, QTableView::item:selected { background: %accentSoft%; color: %text%; }
QHeaderView::section { color: %muted%; background: %field%; border: none; border-bottom: 1px solid %border%; padding: 6px 8px; font-size: %caption%px; }
QSlider::groove:horizontal { height: 4px; background: %control%; border-radius: 2px; }
QSlider::sub-page:horizontal { background: %accent%; border-radius: 2px; }
QSlider::handle:horizontal { width: 16px; height: 16px; margin: -6px 0; border-radius: 8px; background: %accent%; }
QSlider::handle:horizontal:focus { background: %accentStrong%; border: 2px solid %text%; width: 12px; height: 12px; }
QScrollBar:vertical { width: 10px; background: transparent; margin: 0; }
QScrollBar:horizontal { height: 10px; background: transparent; margin: 0; }
QScrollBar::handle { background: %border%; border-radius: 5px; min-height: 32px; min-width: 32px; }
QScrollBar::handle:hover { background: %muted%; }
QScrollBar::add-line, QScrollBar::sub-line { width: 0; height: 0; }
QScrollBar::add-page, QScrollBar::sub-page { background: transparent; }
QTextEdit[role="terminal"] { background: #16181d; color: #d7dae0; border: 1px solid %border%; border-radius: 8px; padding: 8px; }
QLabel[role="appointment"] { background: %accent%; color: %onAccent%; border-radius: 5px; padding: 3px 5px; }
QProgressBar { background: %border%; border: none; border-radius: 2px; max-height: 4px; min-height: 4px; }
QProgressBar::chunk { background: %accent%; border-radius: 2px; }
QToolTip { color: %text%; background: %card%; border: 1px solid %border%; padding: 4px; }
QMenu { color: %text%; background: %card%; border: 1px solid %border%; padding: 4px; }
QMenu::item { padding: 5px 20px; border-radius: 5px; }
QMenu::item:selected { background: %accentSoft%; }
QMessageBox, QDialog { background: %window%; }
)";

}  // namespace

Theme Theme::from(const SettingsStore& settings, Appearance appearance, bool compact,
                  bool systemIsDark) {
  Theme theme;
  theme.dark = appearance == Appearance::dark || (appearance == Appearance::system && systemIsDark);
  theme.compact = compact;
  theme.scale = DesignTypography::scale(settings);
  theme.family = DesignTypography::preferSystemFont(settings)
                     ? QFontDatabase::systemFont(QFontDatabase::GeneralFont).family()
                     : QString("DejaVu Sans");
  theme.accent = colorOf(DesignColors::primary(settings));
  theme.onAccent = readableOn(theme.accent);
  theme.red = theme.dark ? QColor("#ff6b60") : QColor("#c9302c");
  theme.orange = theme.dark ? QColor("#ffb454") : QColor("#b86a00");
  theme.blue = theme.dark ? QColor("#6cb2ff") : QColor("#1f6fd1");
  theme.window = theme.dark ? QColor("#17191c") : QColor("#f6f7f8");
  theme.sidebar = theme.dark ? QColor("#1d2024") : QColor("#eceef0");
  theme.card = theme.dark ? QColor("#22262a") : QColor("#ffffff");
  theme.field = theme.dark ? QColor("#2a2f34") : QColor("#f4f5f7");
  theme.border = theme.dark ? QColor("#3a4047") : QColor("#d6dade");
  theme.control = theme.dark ? QColor("#7a848e") : QColor("#858e97");
  theme.text = theme.dark ? QColor("#eceff2") : QColor("#1c2024");
  theme.muted = theme.dark ? QColor("#a2abb4") : QColor("#5b646d");
  return theme;
}

int Theme::type(double pixels) const { return int(std::lround(pixels * scale)); }

QFont Theme::font() const {
  QFont font(family);
  font.setPixelSize(type(14));
  return font;
}

QPalette Theme::palette() const {
  QPalette palette;
  palette.setColor(QPalette::Window, window);
  palette.setColor(QPalette::WindowText, text);
  palette.setColor(QPalette::Base, card);
  palette.setColor(QPalette::AlternateBase, field);
  palette.setColor(QPalette::Text, text);
  palette.setColor(QPalette::PlaceholderText, muted);
  palette.setColor(QPalette::Button, field);
  palette.setColor(QPalette::ButtonText, text);
  palette.setColor(QPalette::ToolTipBase, card);
  palette.setColor(QPalette::ToolTipText, text);
  palette.setColor(QPalette::Highlight, accent);
  palette.setColor(QPalette::HighlightedText, onAccent);
  palette.setColor(QPalette::Link, dark ? accent.lighter(140) : accent.darker(115));
  palette.setColor(QPalette::Mid, border);
  palette.setColor(QPalette::Midlight, control);
  palette.setColor(QPalette::Dark, muted);
  return palette;
}

QString Theme::styleSheet() const {
  const auto pixels = [](int value) { return QString::number(value); };
  const std::pair<const char*, QString> values[] = {
      {"%window%", window.name()},
      {"%sidebar%", sidebar.name()},
      {"%card%", card.name()},
      {"%field%", field.name()},
      {"%border%", border.name()},
      {"%control%", control.name()},
      {"%text%", text.name()},
      {"%muted%", muted.name()},
      {"%accent%", accent.name()},
      {"%accentText%", (dark ? accent.lighter(150) : accent.darker(130)).name()},
      {"%accentSoft%", withAlpha(accent, dark ? 0.28 : 0.16)},
      {"%accentStrong%", (dark ? accent.lighter(115) : accent.darker(112)).name()},
      {"%onAccent%", onAccent.name()},
      {"%orangeSoft%", withAlpha(orange, 0.16)},
      {"%hover%", withAlpha(text, 0.07)},
      {"%red%", red.name()},
      {"%body%", pixels(type(14))},
      {"%title%", pixels(type(24))},
      {"%heading%", pixels(type(16))},
      {"%figure%", pixels(type(22))},
      {"%caption%", pixels(type(12))},
      {"%padY%", pixels(space(6))},
      {"%padYf%", pixels(space(6) - 1)},
      {"%navY%", pixels(space(8))},
  };
  QString out = sheet;
  for (const auto& [name, value] : values) out.replace(name, value);
  return out;
}

}  // namespace kestrin
