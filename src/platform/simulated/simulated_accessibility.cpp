#include "platform/simulated/simulated_accessibility.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "platform/dispatch/sanitizers.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr Duration callLimit = std::chrono::seconds(2);
const std::string windowPrefix = "window/";

tl::unexpected<Error> gone(std::string description) {
  return fail("Accessibility", 2, std::move(description));
}

AxElement axWindow(int pid, const SimulatedWindow& window) {
  return SimulatedDesktop::axElement(pid, windowPrefix + std::to_string(window.id));
}

bool takesInserts(const SimulatedElement& element) {
  return element.editable && element.acceptsInsert && element.role != "AXSecureTextField";
}

}  // namespace

SimulatedAccessibility::SimulatedAccessibility(Dispatch& dispatch, SimulatedDesktop& desktop,
                                               FaultPlan* faults)
    : dispatch_(dispatch),
      desktop_(desktop),
      faults_(faults),
      events_(dispatch.makeQueue("simulated.accessibility.events")) {}

Status SimulatedAccessibility::reach(const char* site) {
  const dispatch::order::Unobserved unobserved;
  if (busMissing) return fail("Accessibility", 1, "No accessibility bus");
  if (faultDue(faults_, site))
    return fail("Accessibility", 3, std::string("No answer (") + site + ")");
  return {};
}

Result<SimulatedApplication*> SimulatedAccessibility::programOf(const AxElement& element,
                                                                const char* site) {
  if (auto reached = reach(site); !reached) return fail(reached.error());
  auto* program = desktop_.application(SimulatedDesktop::pidOf(element));
  if (!program) return gone("The program is gone");
  return program;
}

Result<SimulatedElement*> SimulatedAccessibility::textOf(const AxElement& element,
                                                         const char* site) {
  auto program = programOf(element, site);
  if (!program) return fail(program.error());
  auto* found = desktop_.element((*program)->pid, element.path);
  if (!found) return gone("The element is gone or has no text");
  return found;
}

SimulatedWindow* SimulatedAccessibility::windowOf(const AxElement& element) {
  if (element.path.rfind(windowPrefix, 0) != 0) return nullptr;
  auto* window =
      desktop_.window(std::strtoull(element.path.c_str() + windowPrefix.size(), nullptr, 10));
  return window;
}

Status SimulatedAccessibility::available() { return reach("accessibility.available"); }

Result<AxElement> SimulatedAccessibility::focusedWindow(int pid) {
  const dispatch::order::Unobserved unobserved;
  if (auto reached = reach("accessibility.focusedWindow"); !reached) return fail(reached.error());
  for (auto id : desktop_.stacking()) {
    const auto* owner = desktop_.applicationOfWindow(id);
    if (owner && owner->pid == pid) return axWindow(pid, *desktop_.window(id));
  }
  return gone("The program shows no window");
}

Result<AxElement> SimulatedAccessibility::focusedElement(int pid) {
  const dispatch::order::Unobserved unobserved;
  if (auto reached = reach("accessibility.focusedElement"); !reached) return fail(reached.error());
  const auto* owner = desktop_.applicationOfWindow(desktop_.activeWindow());
  const auto* focused = desktop_.focusedElement();
  if (!owner || owner->pid != pid || !focused) return gone("No element has the keyboard focus");
  return SimulatedDesktop::axElement(pid, focused->path);
}

Result<AxElement> SimulatedAccessibility::focusedDescendant(const AxElement& root) {
  const dispatch::order::Unobserved unobserved;
  auto program = programOf(root, "accessibility.focusedDescendant");
  if (!program) return fail(program.error());
  const auto* window = windowOf(root);
  if (!window) window = desktop_.window(desktop_.windowOf((*program)->pid, root.path));
  if (!window || window->focusedPath.empty() || window->focusedPath == root.path)
    return gone("Nothing in it has the focus");
  return SimulatedDesktop::axElement((*program)->pid, window->focusedPath);
}

Result<std::string> SimulatedAccessibility::role(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  if (windowOf(element)) return std::string("AXWindow");
  auto found = textOf(element, "accessibility.role");
  if (!found) return fail(found.error());
  return (*found)->role;
}

Result<std::string> SimulatedAccessibility::title(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  auto program = programOf(element, "accessibility.title");
  if (!program) return fail(program.error());
  const auto* window = windowOf(element);
  return window ? window->title : std::string();
}

Result<std::string> SimulatedAccessibility::toolkit(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  auto program = programOf(element, "accessibility.toolkit");
  if (!program) return fail(program.error());
  return (*program)->toolkit;
}

Result<std::string> SimulatedAccessibility::value(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  auto found = textOf(element, "accessibility.value");
  if (!found) return fail(found.error());
  return (*found)->text;
}

Result<std::string> SimulatedAccessibility::textRange(const AxElement& element, int begin,
                                                      int end) {
  const dispatch::order::Unobserved unobserved;
  auto found = textOf(element, "accessibility.textRange");
  if (!found) return fail(found.error());
  begin = std::max(begin, 0);
  if (end <= begin) return std::string();
  return text::utf16Slice((*found)->text, static_cast<size_t>(begin), static_cast<size_t>(end));
}

Result<int> SimulatedAccessibility::textLength(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  auto found = textOf(element, "accessibility.textLength");
  if (!found) return fail(found.error());
  return static_cast<int>(text::utf16Length((*found)->text));
}

Result<TextRange> SimulatedAccessibility::selectedRange(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  auto found = textOf(element, "accessibility.selectedRange");
  if (!found) return fail(found.error());
  return (*found)->selection;
}

Result<std::string> SimulatedAccessibility::selectedText(const AxElement& element) {
  auto range = selectedRange(element);
  if (!range) return fail(range.error());
  return textRange(element, range->location, range->location + range->length);
}

Result<bool> SimulatedAccessibility::isEditable(const AxElement& element) {
  const dispatch::order::Unobserved unobserved;
  auto found = textOf(element, "accessibility.isEditable");
  if (!found) return fail(found.error());
  return takesInserts(**found);
}

InsertOutcome SimulatedAccessibility::insertText(const AxElement& element, int offset,
                                                 const std::string& text) {
  const int pid = SimulatedDesktop::pidOf(element);
  auto behaviour = InsertBehaviour::works;
  {
    const dispatch::order::Unobserved unobserved;
    auto found = textOf(element, "accessibility.insertText");
    if (!found || !takesInserts(**found)) return InsertOutcome::refused;
    behaviour = (*found)->insertBehaviour;
  }
  if (text.empty()) return InsertOutcome::delivered;
  if (behaviour == InsertBehaviour::hangs) return hang(element, offset, text);
  // The world may change before the call arrives and before its answer is back.
  dispatch_.clock().sleep(insertTime / 2, "an insert to arrive");
  auto outcome = InsertOutcome::refused;
  if (behaviour == InsertBehaviour::works) {
    const bool done = desktop_.replaceText(pid, element.path, {offset, 0}, text,
                                           SimulatedDesktop::Author::accessibility);
    outcome = done ? InsertOutcome::delivered : InsertOutcome::refused;
  } else if (behaviour == InsertBehaviour::dies) {
    desktop_.removeApplication(pid);
    outcome = InsertOutcome::unknown;
  } else if (behaviour == InsertBehaviour::liesTrue) {
    desktop_.record("insert lie", text);
  }
  dispatch_.clock().sleep(insertTime / 2, "an insert's answer");
  return outcome;
}

InsertOutcome SimulatedAccessibility::hang(const AxElement& element, int offset,
                                           const std::string& text) {
  {
    const dispatch::order::Unobserved unobserved;
    auto& late = late_[{element.bus, element.path}];
    ++late.outstanding;
    late.result = InsertOutcome::unknown;
    if (!late.settled) late.settled = dispatch_.makeSemaphore(0, "a late insert");
  }
  events_->postAfter(hangTime, lifetime_.guard([this, element, offset, text] {
    const bool done =
        desktop_.replaceText(SimulatedDesktop::pidOf(element), element.path, {offset, 0}, text,
                             SimulatedDesktop::Author::accessibility);
    const dispatch::order::Unobserved unobserved;
    auto& waited = late_[{element.bus, element.path}];
    if (--waited.outstanding > 0) return;
    waited.result = done ? InsertOutcome::delivered : InsertOutcome::refused;
    waited.settled->signal();
  }));
  dispatch_.clock().sleep(callLimit, "a program that hangs");
  return InsertOutcome::unknown;
}

InsertOutcome SimulatedAccessibility::lateOutcome(const AxElement& element, Duration timeout) {
  Late* late = nullptr;
  std::shared_ptr<Semaphore> settled;
  {
    const dispatch::order::Unobserved unobserved;
    const auto known = late_.find({element.bus, element.path});
    if (known == late_.end()) return InsertOutcome::refused;
    late = &known->second;
    if (late->result == InsertOutcome::unknown) settled = late->settled;
  }
  if (settled && !settled->wait(timeout)) return InsertOutcome::unknown;
  const dispatch::order::Unobserved unobserved;
  return std::exchange(late->result, InsertOutcome::refused);
}

Result<SubscriptionHandle> SimulatedAccessibility::watchText(
    const AxElement& element, std::function<void(TextChange)> onForeignChange) {
  auto found = textOf(element, "accessibility.watchText");
  if (!found) return fail(found.error());
  if (!takesInserts(**found)) return fail("Accessibility", 5, "The element is not editable");
  auto active = std::make_shared<std::atomic<bool>>(true);
  auto observer =
      desktop_.observeText([=, events = events_, pid = SimulatedDesktop::pidOf(element)](
                               int changedPid, const std::string& path, TextChange change,
                               SimulatedDesktop::Author author) {
        if (changedPid != pid || path != element.path ||
            author == SimulatedDesktop::Author::accessibility)
          return;
        events->post([=] {
          if (active->load(std::memory_order_relaxed)) onForeignChange(change);
        });
      });
  auto shared = std::make_shared<SubscriptionHandle>(std::move(observer));
  return onUnsubscribe([active, shared] {
    active->store(false, std::memory_order_relaxed);
    shared->reset();
  });
}

}  // namespace kestrin
