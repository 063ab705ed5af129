#include "usermodel/preferences/design.h"

#include "platform/text/text.h"

namespace kestrin {

DesignColor DesignColors::primary(const SettingsStore& settings) {
  const std::string name = text::lower(settings.string("pref_accentColor", "Green"));
  if (name == "blue") return {0.16, 0.47, 0.86};
  if (name == "purple") return {0.55, 0.36, 0.80};
  if (name == "orange") return {0.91, 0.50, 0.16};
  if (name == "pink") return {0.89, 0.44, 0.48};
  return {0.18, 0.62, 0.42};
}

double DesignTypography::scale(const SettingsStore& settings) {
  const std::string size = text::lower(settings.string("pref_fontSize", "Medium"));
  if (size == "small") return 0.92;
  return size == "large" ? 1.08 : 1.0;
}

bool DesignTypography::preferSystemFont(const SettingsStore& settings) {
  return settings.boolean("pref_useSystemFont", true);
}

}  // namespace kestrin
