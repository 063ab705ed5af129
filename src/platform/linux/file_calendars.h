#pragma once

#include <memory>

#include "platform/calendars.h"
#include "platform/files.h"

namespace kestrin {

/// Calendars as iCalendar files: those in "kestrin/calendars" of the configuration folder, and the
/// local ones that Evolution and its relatives keep in the data folder.
std::unique_ptr<Calendars> makeFileCalendars(Files& files);

}  // namespace kestrin
