#pragma once

#include <functional>
#include <string>

#include "platform/files.h"
#include "platform/processes.h"

namespace kestrin {

/// Mends a configuration of the container tool that names a credential helper which is not
/// installed: that makes every pull fail. Blocking: off the main queue. Lines for the log go to
/// `print`, those for the user to `tell`, on the calling thread.
void fixDockerCredentialConfig(Files& files, Processes& processes,
                               const std::function<void(const std::string&)>& print,
                               const std::function<void(const std::string&)>& tell);

}  // namespace kestrin
