#include "platform/linux/atspi_text_session.h"

#include <algorithm>
#include <tuple>
#include <unicode/unistr.h>
#include <utility>

#include "platform/text/text.h"

namespace kestrin::atspi {
namespace {

using namespace std::chrono_literals;

/// Programs send the change before the answer; this is for those that send it from a later turn of
/// their loop.
constexpr Duration echoWait = 300ms;

tl::unexpected<Error> cannotEdit(std::string why) {
  return fail("Accessibility", dbus::refused, std::move(why));
}

}  // namespace

Result<std::shared_ptr<TextSession>> TextSession::open(AtspiBus& bus, QueueRef events,
                                                       const AxElement& element,
                                                       const Budget& budget) {
  auto toolkit = bus.toolkit(element.bus, budget);
  if (!toolkit) return fail(toolkit.error());
  const auto convention = editingConvention(*toolkit);
  if (!convention)
    return cannotEdit("Text of the toolkit \"" + *toolkit +
                      "\" cannot be edited in the background");
  auto role = bus.roleNumber(element, budget);
  if (!role) return fail(role.error());
  if (*role == rolePassword) return cannotEdit("Password fields are left alone");
  auto states = bus.states(element, budget);
  if (!states) return fail(states.error());
  if (states->has(State::defunct))
    return fail("Accessibility", dbus::unreachable, "The element is gone");
  if (!states->has(State::editable) || !states->has(State::sensitive)) {
    return cannotEdit("The element is not editable");
  }
  std::shared_ptr<TextSession> session(new TextSession(bus, element, *convention));
  session->singleLine_ = !states->has(State::multiLine);
  session->state_->queue = std::move(events);
  session->state_->reread = [weak = std::weak_ptr(session)] {
    if (auto alive = weak.lock()) alive->readText(Budget(callLimit));
  };
  if (auto done = session->subscribe(); !done) return fail(done.error());
  if (auto done = session->readFirstText(budget); !done) return fail(done.error());
  return session;
}

TextSession::TextSession(AtspiBus& bus, AxElement element, TextConvention convention)
    : bus_(bus), element_(std::move(element)), convention_(convention) {}

TextSession::~TextSession() = default;

Status TextSession::subscribe() {
  auto request = bus_.requestEvents("object:text-changed");
  if (!request) return fail(request.error());
  subscriptions_.push_back(std::move(*request));
  auto changes = bus_.subscribe(
      "type='signal',sender='" + element_.bus + "',path='" + element_.path +
          "',interface='org.a11y.atspi.Event.Object',member='TextChanged'",
      [state = state_](sdbus::Message& message) {
        auto body =
            dbus::Connection::read<std::tuple<std::string, int32_t, int32_t, sdbus::Variant>>(
                message);
        if (!body) return;
        const auto& [kind, offset, length, any] = *body;
        TextEvent event{kind.rfind("insert", 0) == 0, offset, length, {}};
        if (any.containsValueOfType<std::string>()) event.text = any.get<std::string>();
        onEvent(*state, event);
      });
  if (!changes) return fail(changes.error());
  subscriptions_.push_back(std::move(*changes));
  auto owner = bus_.subscribe(
      "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" +
          element_.bus + "',arg2=''",
      [state = state_](sdbus::Message&) { onGone(*state); });
  if (!owner) return fail(owner.error());
  subscriptions_.push_back(std::move(*owner));
  return {};
}

Result<std::string> TextSession::fetchText(const Budget& budget) {
  return bus_.call<std::string>(element_, textInterface, "GetText", budget, int32_t{0},
                                int32_t{-1});
}

Status TextSession::readFirstText(const Budget& budget) {
  auto text = fetchText(budget);
  if (!text) return fail(text.error());
  {
    const std::lock_guard lock(state_->mutex);
    state_->model = std::make_unique<TextModel>(convention_, *text);
  }
  auto settled = readText(budget);
  if (!settled) return fail(settled.error());
  auto count = bus_.property<int32_t>(element_, textInterface, "CharacterCount", budget);
  if (!count) return fail(count.error());
  const std::lock_guard lock(state_->mutex);
  // Embedded widgets count as characters in GTK 4 but are missing from the text: no offset can be
  // trusted.
  if (*count != state_->model->unitLength())
    return cannotEdit("The text holds objects that cannot be counted");
  return {};
}

Result<TextModel::Effect> TextSession::readText(const Budget& budget) {
  for (int attempt = 0; attempt < 5; ++attempt) {
    uint64_t seen = 0;
    {
      const std::lock_guard lock(state_->mutex);
      seen = state_->events;
      state_->rereading = false;
    }
    auto text = fetchText(budget);
    if (!text) return fail(text.error());
    const std::lock_guard lock(state_->mutex);
    if (state_->events != seen) continue;
    auto effect = state_->model->resync(*text);
    act(*state_, effect);
    return effect;
  }
  return fail("Accessibility", dbus::timeout, "The text changes faster than it can be read");
}

void TextSession::onEvent(Shared& state, const TextEvent& event) {
  const std::lock_guard lock(state.mutex);
  ++state.events;
  // Before the first reading every change is in that reading, or makes it read again.
  if (state.model) act(state, state.model->apply(event));
}

void TextSession::onGone(Shared& state) {
  const std::lock_guard lock(state.mutex);
  state.gone = true;
  state.lateResult = InsertOutcome::refused;
  state.late.clear();
  state.changed.notify_all();
}

/// With the state's mutex held.
void TextSession::act(Shared& state, const TextModel::Effect& effect) {
  if (effect.own) {
    if (state.late.erase(*effect.own) > 0 && state.late.empty())
      state.lateResult = InsertOutcome::delivered;
    state.changed.notify_all();
  }
  if (effect.foreign) {
    // From a queue and not from here: a watcher may hold a lock while it waits for one of our
    // calls, which the thread of the events has to finish.
    state.queue->post([watchers = state.watchers, change = *effect.foreign] {
      for (const auto& watcher : watchers) {
        if (watcher->active) watcher->callback(change);
      }
    });
  }
  if (effect.unsure && !state.rereading) {
    state.rereading = true;
    state.queue->post(state.reread);
  }
}

SubscriptionHandle TextSession::watch(std::function<void(TextChange)> onForeignChange) {
  auto watcher = std::make_shared<Watcher>();
  watcher->callback = std::move(onForeignChange);
  const std::lock_guard lock(state_->mutex);
  state_->watchers.push_back(watcher);
  return onUnsubscribe([session = shared_from_this(), watcher] {
    watcher->active = false;
    const std::lock_guard held(session->state_->mutex);
    std::erase(session->state_->watchers, watcher);
  });
}

std::optional<int> TextSession::length() {
  const std::lock_guard lock(state_->mutex);
  if (state_->gone || state_->rereading) return std::nullopt;
  return state_->model->utf16Length();
}

bool TextSession::isIdle() {
  const std::lock_guard lock(state_->mutex);
  return state_->watchers.empty() && state_->lateResult == InsertOutcome::refused;
}

InsertOutcome TextSession::insert(int utf16Offset, const std::string& text) {
  if (text.empty()) return InsertOutcome::delivered;
  const std::lock_guard oneAtATime(inserting_);
  const Budget budget(callLimit);
  const auto before = convention_.rewritesSingleLine && singleLine_ ? caret(budget) : std::nullopt;
  uint64_t number = 0;
  int at = 0;
  std::string textBefore;
  {
    const std::lock_guard lock(state_->mutex);
    if (state_->gone) return InsertOutcome::refused;
    if (state_->late.empty()) state_->lateResult = InsertOutcome::refused;
    at = state_->model->toUnits(utf16Offset);
    number = state_->model->expect(utf16Offset, text);
    if (before) textBefore = state_->model->text();
  }
  const auto units = static_cast<int>(text::utf16Length(text));
  const int length = convention_.length == TextConvention::Length::utf16Units
                         ? units
                         : static_cast<int>(text.size());
  auto taken = bus_.call<bool>(element_, editableInterface, "InsertText", budget, int32_t{at}, text,
                               int32_t{length});
  if (!taken) return outcomeOf(taken.error(), number);
  auto outcome = confirm(number, budget);
  if (before && outcome == InsertOutcome::delivered) {
    outcome = readBack(textBefore, budget);
    if (outcome == InsertOutcome::delivered) restore(*before, at, units, budget);
  }
  return outcome;
}

/// The call was answered, but its answer means nothing: toolkits return true for what they did not
/// do.
InsertOutcome TextSession::confirm(uint64_t number, const Budget& budget) {
  {
    std::unique_lock lock(state_->mutex);
    state_->changed.wait_for(lock, std::min(echoWait, budget.left()),
                             [&] { return state_->gone || !state_->model->isExpected(number); });
    if (!state_->model->isExpected(number)) return InsertOutcome::delivered;
    if (state_->gone) return InsertOutcome::unknown;
  }
  auto effect = readText(budget);
  if (!effect) return outcomeOf(effect.error(), number);
  const std::lock_guard lock(state_->mutex);
  if (!state_->model->isExpected(number)) return InsertOutcome::delivered;
  state_->model->withdraw(number);
  if (!effect->foreign) return InsertOutcome::refused;
  // A text that changed in another way than asked may hold part of ours: nobody will ever know.
  return state_->lateResult = InsertOutcome::unknown;
}

/// Qt announces a rewritten single-line field as it was asked to be, before it cuts the text to
/// what the field allows: there the echo proves nothing.
InsertOutcome TextSession::readBack(const std::string& textBefore, const Budget& budget) {
  auto text = fetchText(budget);
  if (!text) return InsertOutcome::unverified;
  const std::lock_guard lock(state_->mutex);
  if (*text == state_->model->text()) return InsertOutcome::delivered;
  state_->model->resync(*text);
  if (*text == textBefore) return InsertOutcome::refused;
  return state_->lateResult = InsertOutcome::unknown;
}

InsertOutcome TextSession::outcomeOf(const Error& error, uint64_t number) {
  const std::lock_guard lock(state_->mutex);
  if (error.code == dbus::timeout && !state_->gone) {
    // It stays announced: a program that wakes up still does what it was asked.
    state_->late.insert(number);
    return state_->lateResult = InsertOutcome::unknown;
  }
  state_->model->withdraw(number);
  if (error.code == dbus::unreachable || error.code == dbus::refused) return InsertOutcome::refused;
  if (!state_->gone && error.code != dbus::died) state_->lateResult = InsertOutcome::unknown;
  return InsertOutcome::unknown;
}

InsertOutcome TextSession::lateOutcome(Duration timeout) {
  std::unique_lock lock(state_->mutex);
  state_->changed.wait_for(lock, timeout, [&] { return state_->late.empty(); });
  if (state_->lateResult != InsertOutcome::delivered) return state_->lateResult;
  // Told once; then nothing is outstanding.
  return std::exchange(state_->lateResult, InsertOutcome::refused);
}

std::optional<TextSession::Caret> TextSession::caret(const Budget& budget) {
  auto offset = bus_.property<int32_t>(element_, textInterface, "CaretOffset", budget);
  if (!offset) return std::nullopt;
  Caret caret{*offset, *offset, *offset};
  auto selections = bus_.call<int32_t>(element_, textInterface, "GetNSelections", budget);
  if (!selections || *selections < 1) return caret;
  auto range = bus_.call<std::tuple<int32_t, int32_t>>(element_, textInterface, "GetSelection",
                                                       budget, int32_t{0});
  if (range) std::tie(caret.selectionStart, caret.selectionEnd) = *range;
  return caret;
}

void TextSession::restore(const Caret& before, int insertedAt, int insertedUnits,
                          const Budget& budget) {
  const auto moved = [&](int offset) {
    return offset >= insertedAt ? offset + insertedUnits : offset;
  };
  if (before.selectionEnd > before.selectionStart) {
    bus_.call<bool>(element_, textInterface, "SetSelection", budget, int32_t{0},
                    int32_t{moved(before.selectionStart)}, int32_t{moved(before.selectionEnd)});
  } else {
    bus_.call<bool>(element_, textInterface, "SetCaretOffset", budget,
                    int32_t{moved(before.offset)});
  }
}

}  // namespace kestrin::atspi
