#include "platform/simulated/simulated_desktop.h"

#include <algorithm>

#include "platform/dispatch/sanitizers.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

const std::string busPrefix = ":sim.";

bool has(const std::vector<std::string>& list, const char* word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

/// Where an offset of the text before a replacement stands after it. A caret exactly at an
/// insertion moves behind the new text, as it does in the real toolkits.
int movedOffset(int offset, TextRange range, int inserted) {
  if (offset < range.location) return offset;
  if (offset >= range.location + range.length) return offset + inserted - range.length;
  return range.location + inserted;
}

template <class Observers, class... Args>
void tell(const std::shared_ptr<Observers>& observers, const Args&... args) {
  Observers copy;  // an observer may unsubscribe while it is told
  {
    const dispatch::order::Unobserved unobserved;
    copy = *observers;
  }
  for (const auto& [id, observer] : copy) {
    if (observers->count(id)) observer(args...);
  }
}

template <class Observers, class F>
SubscriptionHandle observe(const std::shared_ptr<Observers>& observers, int id, F observer) {
  (*observers)[id] = std::move(observer);
  return onUnsubscribe([weak = std::weak_ptr<Observers>(observers), id] {
    if (auto alive = weak.lock()) alive->erase(id);
  });
}

}  // namespace

SimulatedDesktop::SimulatedDesktop(Dispatch& dispatch)
    : dispatch_(dispatch),
      queue_(dispatch.makeQueue("simulated.desktop")),
      textObservers_(std::make_shared<std::map<int, TextObserver>>()),
      keyObservers_(std::make_shared<std::map<int, std::function<void(KeyEdge)>>>()) {}

SimulatedDesktop::~SimulatedDesktop() = default;

void SimulatedDesktop::addApplication(SimulatedApplication application) {
  const dispatch::order::Unobserved unobserved;
  applications_.push_back(std::move(application));
  for (const auto& window : applications_.back().windows) activate(window.id);
}

void SimulatedDesktop::removeApplication(int pid) {
  const dispatch::order::Unobserved unobserved;
  const auto* leaving = application(pid);
  if (!leaving) return;
  std::vector<uint64_t> windows;
  for (const auto& window : leaving->windows) windows.push_back(window.id);
  for (uint64_t id : windows) closeWindow(id);
  std::erase_if(applications_, [&](const auto& a) { return a.pid == pid; });
  record("end", std::to_string(pid));
}

SimulatedApplication* SimulatedDesktop::application(int pid) {
  const dispatch::order::Unobserved unobserved;
  for (auto& a : applications_) {
    if (a.pid == pid) return &a;
  }
  return nullptr;
}

SimulatedApplication* SimulatedDesktop::applicationOfWindow(uint64_t windowId) {
  const dispatch::order::Unobserved unobserved;
  for (auto& a : applications_) {
    for (auto& w : a.windows) {
      if (w.id == windowId) return &a;
    }
  }
  return nullptr;
}

SimulatedWindow* SimulatedDesktop::window(uint64_t id) {
  const dispatch::order::Unobserved unobserved;
  for (auto& a : applications_) {
    for (auto& w : a.windows) {
      if (w.id == id) return &w;
    }
  }
  return nullptr;
}

SimulatedElement* SimulatedDesktop::element(int pid, const std::string& path) {
  const dispatch::order::Unobserved unobserved;
  if (auto* a = application(pid)) {
    for (auto& w : a->windows) {
      for (auto& e : w.elements) {
        if (e.path == path) return &e;
      }
    }
  }
  return nullptr;
}

uint64_t SimulatedDesktop::windowOf(int pid, const std::string& path) {
  const dispatch::order::Unobserved unobserved;
  if (auto* a = application(pid)) {
    for (auto& w : a->windows) {
      for (auto& e : w.elements) {
        if (e.path == path) return w.id;
      }
    }
  }
  return 0;
}

AxElement SimulatedDesktop::axElement(int pid, const std::string& path) {
  return {busPrefix + std::to_string(pid), path};
}

int SimulatedDesktop::pidOf(const AxElement& element) {
  if (element.bus.rfind(busPrefix, 0) != 0) return 0;
  return std::atoi(element.bus.c_str() + busPrefix.size());
}

bool SimulatedDesktop::activate(uint64_t windowId) {
  const dispatch::order::Unobserved unobserved;
  if (!window(windowId)) return false;
  std::erase(stacking_, windowId);
  stacking_.insert(stacking_.begin(), windowId);
  activeWindow_ = windowId;
  record("activate", std::to_string(windowId));
  return true;
}

void SimulatedDesktop::closeWindow(uint64_t windowId) {
  const dispatch::order::Unobserved unobserved;
  auto* owner = applicationOfWindow(windowId);
  if (!owner) return;
  std::erase_if(owner->windows, [&](const auto& w) { return w.id == windowId; });
  std::erase(stacking_, windowId);
  if (activeWindow_ == windowId) activeWindow_ = stacking_.empty() ? 0 : stacking_.front();
  record("close", std::to_string(windowId));
}

SimulatedElement* SimulatedDesktop::focusedElement() {
  const dispatch::order::Unobserved unobserved;
  auto* active = window(activeWindow_);
  auto* owner = applicationOfWindow(activeWindow_);
  return active && owner ? element(owner->pid, active->focusedPath) : nullptr;
}

void SimulatedDesktop::focusElement(int pid, const std::string& path) {
  const dispatch::order::Unobserved unobserved;
  if (auto* holder = window(windowOf(pid, path))) holder->focusedPath = path;
}

bool SimulatedDesktop::replaceText(int pid, const std::string& path, TextRange range,
                                   const std::string& text, Author author) {
  const auto inserted = static_cast<int>(text::utf16Length(text));
  {
    const dispatch::order::Unobserved unobserved;
    auto* target = element(pid, path);
    if (!target) return false;
    const int length = static_cast<int>(text::utf16Length(target->text));
    range.location = std::clamp(range.location, 0, length);
    range.length = std::clamp(range.length, 0, length - range.location);
    const int end = range.location + range.length;
    target->text = text::utf16Slice(target->text, 0, range.location) + text +
                   text::utf16Slice(target->text, end, length);
    auto& selection = target->selection;
    const int selectionEnd = movedOffset(selection.location + selection.length, range, inserted);
    selection.location = movedOffset(selection.location, range, inserted);
    selection.length = std::max(0, selectionEnd - selection.location);
    record(author == Author::user    ? "user text"
           : author == Author::paste ? "paste"
                                     : "insert",
           text);
  }
  tell(textObservers_, pid, path, TextChange{range.location, range.length, inserted}, author);
  return true;
}

bool SimulatedDesktop::userTypes(int pid, const std::string& path, const std::string& text) {
  const auto at = selectionOf(pid, path);
  return at && replaceText(pid, path, *at, text, Author::user);
}

std::optional<TextRange> SimulatedDesktop::selectionOf(int pid, const std::string& path) {
  const dispatch::order::Unobserved unobserved;
  const auto* target = element(pid, path);
  return target ? std::optional(target->selection) : std::nullopt;
}

SubscriptionHandle SimulatedDesktop::observeText(TextObserver observer) {
  return observe(textObservers_, nextObserver_++, std::move(observer));
}

void SimulatedDesktop::setClipboard(std::optional<std::string> text, bool ours) {
  const dispatch::order::Unobserved unobserved;
  record("clipboard", text.value_or(""));
  clipboard_ = {std::move(text), ours, 0};
}

std::optional<std::string> SimulatedDesktop::fetchClipboard() {
  const dispatch::order::Unobserved unobserved;
  if (clipboard_.ours && clipboard_.text) {
    ++clipboard_.fetches;
    for (const auto& waiter : std::exchange(fetchWaiters_, {})) {
      if (auto semaphore = waiter.lock()) semaphore->signal();
    }
  }
  return clipboard_.text;
}

void SimulatedDesktop::deliverChord(const std::vector<std::string>& modifiers,
                                    const std::string& key) {
  const dispatch::order::Unobserved unobserved;
  record("chord", modifiers.empty() ? key : text::join(modifiers, "+") + "+" + key);
  auto* target = focusedElement();
  if (key != "v" || !has(modifiers, "control") || !target) return;
  const bool terminal = target->role == "AXTerminal";
  if (!target->acceptsPaste || (terminal && !has(modifiers, "shift"))) return;
  const int pid = applicationOfWindow(activeWindow_)->pid;
  queue_->postAfter(pasteDelay,
                    lifetime_.guard([this, pid, path = target->path] { pasteInto(pid, path); }));
}

void SimulatedDesktop::pasteInto(int pid, const std::string& path) {
  const auto at = selectionOf(pid, path);
  if (!at) return;
  if (auto text = fetchClipboard()) replaceText(pid, path, *at, *text, Author::paste);
}

void SimulatedDesktop::deliverButton(int button, bool down) {
  const dispatch::order::Unobserved unobserved;
  if (down) {
    heldButtons.insert(button);
  } else {
    heldButtons.erase(button);
  }
  record(down ? "button down" : "button up", std::to_string(button));
  auto* active = window(activeWindow_);
  if (!active || button != 1 || !down) return;
  for (const auto& e : active->elements) {
    const int dx = pointer.x - e.origin.x, dy = pointer.y - e.origin.y;
    if (dx >= 0 && dy >= 0 && dx < e.size.x && dy < e.size.y) active->focusedPath = e.path;
  }
}

void SimulatedDesktop::emitKey(KeyEdge edge) { tell(keyObservers_, edge); }

void SimulatedDesktop::pressHoldKey() {
  if (std::exchange(holdKeyDown_, true)) return;
  record("key", "hold down");
  emitKey(KeyEdge::holdDown);
}

void SimulatedDesktop::releaseHoldKey() {
  if (!std::exchange(holdKeyDown_, false)) return;
  record("key", "hold up");
  emitKey(KeyEdge::holdUp);
}

void SimulatedDesktop::pressOtherKey() {
  record("key", "other");
  if (holdKeyDown_) emitKey(KeyEdge::otherKey);
}

SubscriptionHandle SimulatedDesktop::observeKeys(std::function<void(KeyEdge)> observer) {
  return observe(keyObservers_, nextObserver_++, std::move(observer));
}

void SimulatedDesktop::record(std::string what, std::string detail) {
  const dispatch::order::Unobserved unobserved;
  events_.push_back({dispatch_.clock().steadyNow().sinceStart, std::move(what), std::move(detail)});
}

std::vector<std::string> SimulatedDesktop::recorded(const std::string& what) const {
  const dispatch::order::Unobserved unobserved;
  std::vector<std::string> details;
  for (const auto& event : events_) {
    if (event.what == what) details.push_back(event.detail);
  }
  return details;
}

}  // namespace kestrin
