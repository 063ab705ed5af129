#pragma once

#include "platform/settings.h"

namespace kestrin {

/// Parts of 1.
struct DesignColor {
  double red = 0, green = 0, blue = 0;
  bool operator==(const DesignColor&) const = default;
};

/// The colours of all views. Reads the settings at each call.
struct DesignColors {
  /// The accent colour that the user chose; the brand's green when it is none of the known ones.
  static DesignColor primary(const SettingsStore& settings);
};

/// The type of all views. Reads the settings at each call.
struct DesignTypography {
  /// Factor on every size.
  static double scale(const SettingsStore& settings);
  static bool preferSystemFont(const SettingsStore& settings);
};

}  // namespace kestrin
