#include "platform/linux/atspi_accessibility.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>

#include "platform/linux/atspi_bus.h"
#include "platform/linux/atspi_focus.h"
#include "platform/linux/atspi_text_session.h"
#include "platform/linux/atspi_toolkits.h"
#include "platform/text/text.h"

namespace kestrin {
namespace atspi {
namespace {

class AtspiAccessibility final : public Accessibility {
 public:
  AtspiAccessibility(Dispatch& dispatch, std::shared_ptr<AtspiBus> bus)
      : bus_(std::move(bus)), focus_(*bus_), events_(dispatch.makeQueue("accessibility.events")) {
    bus_->onConnect([this](dbus::Connection& connection) { focus_.attach(connection); });
    // Focus events count from now on, so connect before the first question; a missing bus may take
    // seconds.
    events_->post([shared = bus_] { shared->connection(); });
  }
  ~AtspiAccessibility() override { bus_->onConnect({}); }

  Status available() override {
    auto connection = bus_->connection();
    if (!connection) return fail(connection.error());
    return {};
  }

  Result<AxElement> focusedWindow(int pid) override {
    return focus_.window(pid, Budget(callLimit));
  }
  Result<AxElement> focusedElement(int pid) override {
    return focus_.element(pid, Budget(callLimit));
  }
  Result<AxElement> focusedDescendant(const AxElement& root) override {
    return focus_.descendant(root, Budget(callLimit));
  }

  Result<std::string> role(const AxElement& element) override {
    const Budget budget(callLimit);
    auto number = bus_->roleNumber(element, budget);
    if (!number) return fail(number.error());
    auto states = bus_->states(element, budget);
    if (!states) return fail(states.error());
    auto word = roleWord(*number, states->has(State::multiLine));
    if (word == "AXTextField" && isSearchField(element, budget)) return "AXSearchField";
    if (!word.empty()) return word;
    auto name = bus_->call<std::string>(element, accessibleInterface, "GetRoleName", budget);
    if (!name) return fail(name.error());
    return plainRoleWord(*name);
  }

  Result<std::string> title(const AxElement& element) override {
    return bus_->property<std::string>(element, accessibleInterface, "Name", Budget(callLimit));
  }

  Result<std::string> toolkit(const AxElement& element) override {
    return bus_->toolkit(element.bus, Budget(callLimit));
  }

  Result<std::string> value(const AxElement& element) override {
    return getText(element, 0, -1, Budget(callLimit));
  }

  Result<std::string> textRange(const AxElement& element, int begin, int end) override {
    begin = std::max(begin, 0);
    if (end <= begin) return std::string();
    const Budget budget(callLimit);
    if (countsUtf16(element, budget)) {
      // Qt gives nothing at all for an end behind the text.
      auto count = bus_->property<int32_t>(element, textInterface, "CharacterCount", budget);
      if (!count) return fail(count.error());
      if (begin >= *count) return std::string();
      return getText(element, begin, std::min<int>(end, *count), budget);
    }
    // As many code points hold at least as many UTF-16 units.
    auto head = getText(element, 0, end, budget);
    if (!head) return head;
    return text::utf16Slice(*head, static_cast<size_t>(begin), static_cast<size_t>(end));
  }

  Result<int> textLength(const AxElement& element) override {
    // The copy of a watched text spares reading all of it for every piece that goes in.
    if (const auto session = findSession(element)) {
      if (const auto length = session->length()) return *length;
    }
    const Budget budget(callLimit);
    if (countsUtf16(element, budget)) {
      return bus_->property<int32_t>(element, textInterface, "CharacterCount", budget);
    }
    auto text = getText(element, 0, -1, budget);
    if (!text) return fail(text.error());
    return static_cast<int>(text::utf16Length(*text));
  }

  Result<TextRange> selectedRange(const AxElement& element) override {
    const Budget budget(callLimit);
    auto range = selection(element, budget);
    if (!range) return fail(range.error());
    auto [begin, end] = *range;
    if (countsUtf16(element, budget)) return TextRange{begin, end - begin};
    auto head = getText(element, 0, end, budget);
    if (!head) return fail(head.error());
    const auto start = static_cast<int>(text::codePointsToUtf16(*head, static_cast<size_t>(begin)));
    return TextRange{start, static_cast<int>(text::utf16Length(*head)) - start};
  }

  Result<std::string> selectedText(const AxElement& element) override {
    const Budget budget(callLimit);
    auto range = selection(element, budget);
    if (!range) return fail(range.error());
    if (range->first == range->second) return std::string();
    return getText(element, range->first, range->second, budget);
  }

  Result<bool> isEditable(const AxElement& element) override {
    const Budget budget(callLimit);
    auto states = bus_->states(element, budget);
    if (!states) return fail(states.error());
    if (!states->has(State::editable) || !states->has(State::sensitive)) return false;
    auto number = bus_->roleNumber(element, budget);
    if (!number) return fail(number.error());
    if (*number == rolePassword) return false;
    auto interfaces =
        bus_->call<std::vector<std::string>>(element, accessibleInterface, "GetInterfaces", budget);
    if (!interfaces) return fail(interfaces.error());
    return std::find(interfaces->begin(), interfaces->end(), editableInterface) !=
           interfaces->end();
  }

  InsertOutcome insertText(const AxElement& element, int offset, const std::string& text) override {
    auto session = openSession(element);
    const auto outcome = session ? (*session)->insert(offset, fit(text)) : InsertOutcome::refused;
    dropIdleSessions();
    return outcome;
  }

  InsertOutcome lateOutcome(const AxElement& element, Duration timeout) override {
    auto session = findSession(element);
    return session ? session->lateOutcome(timeout) : InsertOutcome::refused;
  }

  Result<SubscriptionHandle> watchText(const AxElement& element,
                                       std::function<void(TextChange)> onForeignChange) override {
    dropIdleSessions();
    auto session = openSession(element);
    if (!session) return fail(session.error());
    return (*session)->watch(std::move(onForeignChange));
  }

 private:
  using Key = std::pair<std::string, std::string>;
  static Key keyOf(const AxElement& element) { return {element.bus, element.path}; }

  /// Text that the bus carries and every toolkit keeps as it is: valid, no zero bytes (they end a
  /// string there), line feeds only (Qt makes one line end of a carriage return and a line feed).
  static std::string fit(const std::string& text) {
    auto fitting = text::replaceAll(text::replaceInvalidUtf8(text), "\r\n", "\n");
    std::replace(fitting.begin(), fitting.end(), '\r', '\n');
    std::erase(fitting, '\0');
    return fitting;
  }

  Result<std::string> getText(const AxElement& element, int begin, int end, const Budget& budget) {
    return bus_->call<std::string>(element, textInterface, "GetText", budget, int32_t{begin},
                                   int32_t{end});
  }

  bool countsUtf16(const AxElement& element, const Budget& budget) {
    auto name = bus_->toolkit(element.bus, budget);
    return name && readingUnit(*name) == TextConvention::Unit::utf16;
  }

  bool isSearchField(const AxElement& element, const Budget& budget) {
    using Attributes = std::map<std::string, std::string>;
    auto attributes = bus_->call<Attributes>(element, accessibleInterface, "GetAttributes", budget);
    if (!attributes) return false;
    return (*attributes)["text-input-type"] == "search" ||
           text::contains((*attributes)["xml-roles"], "searchbox");
  }

  /// Begin and end in the toolkit's units; the caret twice where nothing is selected.
  Result<std::pair<int, int>> selection(const AxElement& element, const Budget& budget) {
    auto count = bus_->call<int32_t>(element, textInterface, "GetNSelections", budget);
    if (!count) return fail(count.error());
    if (*count > 0) {
      auto range = bus_->call<std::tuple<int32_t, int32_t>>(element, textInterface, "GetSelection",
                                                            budget, int32_t{0});
      if (range && std::get<0>(*range) >= 0 && std::get<1>(*range) > std::get<0>(*range)) {
        return std::pair<int, int>(std::get<0>(*range), std::get<1>(*range));
      }
    }
    auto caret = bus_->property<int32_t>(element, textInterface, "CaretOffset", budget);
    if (!caret) return fail(caret.error());
    if (*caret < 0) return fail("Accessibility", dbus::refused, "The element has no caret");
    return std::pair<int, int>(*caret, *caret);
  }

  std::shared_ptr<TextSession> findSession(const AxElement& element) {
    const std::lock_guard lock(mutex_);
    auto known = sessions_.find(keyOf(element));
    return known == sessions_.end() ? nullptr : known->second;
  }

  Result<std::shared_ptr<TextSession>> openSession(const AxElement& element) {
    if (auto known = findSession(element)) return known;
    // Held while opening: two sessions of one element would each take the other's inserts for the
    // user's.
    const std::lock_guard opening(opening_);
    if (auto known = findSession(element)) return known;
    auto session = TextSession::open(*bus_, events_, element, Budget(callLimit));
    if (!session) return session;
    const std::lock_guard lock(mutex_);
    sessions_[keyOf(element)] = *session;
    return session;
  }

  void dropIdleSessions() {
    std::map<Key, std::shared_ptr<TextSession>> dropped;
    const std::lock_guard lock(mutex_);
    for (auto at = sessions_.begin(); at != sessions_.end();) {
      auto next = std::next(at);
      if (at->second.use_count() == 1 && at->second->isIdle())
        dropped.insert(sessions_.extract(at));
      at = next;
    }
  }

  std::shared_ptr<AtspiBus> bus_;
  FocusTracker focus_;
  QueueRef events_;
  std::mutex opening_;
  std::mutex mutex_;
  std::map<Key, std::shared_ptr<TextSession>> sessions_;
};

}  // namespace
}  // namespace atspi

std::unique_ptr<Accessibility> makeAtspiAccessibility(Dispatch& dispatch,
                                                      std::shared_ptr<atspi::AtspiBus> bus) {
  return std::make_unique<atspi::AtspiAccessibility>(dispatch, std::move(bus));
}

}  // namespace kestrin
