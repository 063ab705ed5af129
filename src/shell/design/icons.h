#pragma once

#include <QColor>
#include <QIcon>

namespace kestrin {

/// The pictures of the side bar and the buttons, as lines in one weight.
enum class Glyph {
  home,
  calendar,
  liveAssist,
  calls,
  research,
  notes,
  history,
  modes,
  personality,
  settings,
  terminal,
  logs,
  account,
};

/// Drawn in that colour, sharp at any size and scale.
QIcon glyphIcon(Glyph glyph, const QColor& color);

}  // namespace kestrin
