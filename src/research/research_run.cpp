#include "research/research_run.h"

#include <utility>

namespace kestrin {

ResearchRun::ResearchRun(Dispatch& dispatch, ResearchService& service, const std::string& query,
                         const std::string& context, Callbacks callbacks) {
  const QueueRef main = dispatch.mainQueue();
  const ResearchStreamDelegate::OnEvent onEvent = lifetime_.guard(std::move(callbacks.onEvent));
  const ResearchStreamDelegate::OnComplete onComplete =
      lifetime_.guard(std::move(callbacks.onComplete));
  const ResearchStreamDelegate::OnError onError = lifetime_.guard(std::move(callbacks.onError));
  streamingTask_ = service.stream(
      query, context,
      std::make_shared<ResearchStreamDelegate>(
          [main, onEvent](const Json& event) { main->post([onEvent, event] { onEvent(event); }); },
          [main, onComplete](const std::string& summary,
                             const std::vector<ResearchSource>& sources) {
            main->post([onComplete, summary, sources] { onComplete(summary, sources); });
          },
          [main, onError](const std::string& text) {
            main->post([onError, text] { onError(text); });
          }));
}

}  // namespace kestrin
