#pragma once

#include <memory>
#include <string>

#include "platform/processes.h"
#include "platform/web_page.h"

namespace kestrin {

/// Web pages that are a process each: `program` ("kestrin-web", spoken to in JSON lines over its
/// standard streams, which are nobody else's). `dispatch` and `processes` outlive the pages.
std::unique_ptr<WebPages> makeWebPages(Dispatch& dispatch, Processes& processes,
                                       std::string program);

}  // namespace kestrin
