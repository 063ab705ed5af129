#include "shell/process_log.h"

#include <utility>

namespace kestrin {

ProcessLog::ProcessLog(Platform& platform, Logger& logger,
                       std::function<void(std::string_view)> printLine)
    : logger_(logger),
      printLine_(std::move(printLine)),
      capture_(platform.dispatch, streams_, logger),
      redirector_(platform.dispatch, platform.files, streams_, logger) {
  capture_.start();
  // Such a line has its entry already: printed, it would come back from the capture as another.
  logger_.setSink([this](std::string_view line) { capture_.passOn(line); });
  redirector_.start();
}

void ProcessLog::stop() {
  capture_.stop();
  logger_.setSink(printLine_);
  // What came between the two lines above.
  capture_.stop();
}

}  // namespace kestrin
