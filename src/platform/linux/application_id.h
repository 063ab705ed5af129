#pragma once

namespace kestrin {

/// The name by which desktops know us: of the desktop entry, the icon and the place on the session
/// bus.
inline constexpr const char* desktopApplicationId = "com.kestrin.Kestrin";

}  // namespace kestrin
