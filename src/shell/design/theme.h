#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QString>

#include "platform/settings.h"
#include "usermodel/preferences/main_window_effects.h"

namespace kestrin {

/// The look of every window: colours, type scale and spacing, made from the settings. A plain
/// value. Widgets name their part ("card", "title", ...) in the property "role"; the style sheet
/// and the palette made here do the rest, so that a change of the look needs no code of theirs.
struct Theme {
  bool dark = false;
  bool compact = false;
  double scale = 1;  ///< on every size of type
  QString family;    ///< of the type
  QColor window, sidebar, card, field, border, text, muted, accent, onAccent;
  QColor control;  ///< the outline of what can be switched or moved
  QColor red, orange, blue;

  /// `systemIsDark` decides where the appearance follows the system.
  static Theme from(const SettingsStore& settings, Appearance appearance, bool compact,
                    bool systemIsDark);

  /// A size of type in pixels.
  int type(double pixels) const;
  /// A distance in pixels; closer together in compact mode.
  int space(int pixels) const { return compact ? pixels * 2 / 3 : pixels; }
  QFont font() const;
  QPalette palette() const;
  QString styleSheet() const;

  bool operator==(const Theme&) const = default;
};

}  // namespace kestrin
