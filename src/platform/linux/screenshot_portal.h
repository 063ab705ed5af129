#pragma once

#include <string>

#include "platform/linux/dbus.h"

namespace kestrin {

/// Codes of errors in the domain "ScreenshotPortal".
enum ScreenshotPortalError { noScreenshotPortal = 1, screenshotDeclined = 2 };

/// Asks the desktop for a picture of the screen, which may ask its user. Blocks until it has
/// answered, at most a minute. Returns the path of the file that the desktop made.
Result<std::string> takePortalScreenshot(dbus::Connection& bus);

}  // namespace kestrin
