#pragma once

#include <gio/gio.h>

namespace kestrin {

/// Starts an application that has nothing to do with this process's output: it may outlive us, and
/// a write to our captured streams would then end it; until then its chatter would fill our log.
/// `uris` may be null. False with `error` set when it could not be started.
bool launchApart(GAppInfo* application, GList* uris, GError** error);

/// As `launchApart`, with the user's choice for the address.
bool openApart(const char* uri, GError** error);

}  // namespace kestrin
