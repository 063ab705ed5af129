#pragma once

#include <memory>
#include <string>

#include "platform/dispatch/dispatch.h"
#include "platform/lifetime.h"
#include "research/research_service.h"

namespace kestrin {

/// One question on its way: its events, then its end, come on the main queue for as long as this
/// lives. Dropping it cancels the question, and nothing that was under way is heard: not even what
/// the main queue had been given before. Main queue only.
class ResearchRun {
 public:
  struct Callbacks {
    ResearchStreamDelegate::OnEvent onEvent;
    ResearchStreamDelegate::OnComplete onComplete;
    ResearchStreamDelegate::OnError onError;
  };

  /// Each callback must be set; it may drop this.
  ResearchRun(Dispatch& dispatch, ResearchService& service, const std::string& query,
              const std::string& context, Callbacks callbacks);

 private:
  std::shared_ptr<ResearchStream> streamingTask_;
  Lifetime lifetime_;
};

}  // namespace kestrin
