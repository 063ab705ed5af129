#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/accessibility.h"
#include "platform/dispatch/dispatch.h"
#include "platform/linux/atspi_bus.h"
#include "platform/linux/atspi_text_model.h"

namespace kestrin::atspi {

/// Everything that goes on with one editable element: a copy of its text kept current by the
/// program's change events, inserts confirmed by their echo, and the watchers of other people's
/// changes. Opening it costs some calls; after that an insert is one call. Thread-safe; one insert
/// at a time. `AtspiBus` must outlive it.
class TextSession : public std::enable_shared_from_this<TextSession> {
 public:
  /// Fails for what cannot be edited safely: no editable text, a password field, an unknown
  /// toolkit. Watchers are called on `events`.
  static Result<std::shared_ptr<TextSession>> open(AtspiBus& bus, QueueRef events,
                                                   const AxElement& element, const Budget& budget);
  ~TextSession();

  InsertOutcome insert(int utf16Offset, const std::string& text);
  InsertOutcome lateOutcome(Duration timeout);
  SubscriptionHandle watch(std::function<void(TextChange)> onForeignChange);
  /// UTF-16 units of the text by the kept copy; nothing while the copy is being read anew, or the
  /// program is gone.
  std::optional<int> length();
  /// Nobody watches and nothing is outstanding.
  bool isIdle();

 private:
  struct Watcher {
    std::atomic<bool> active{true};
    std::function<void(TextChange)> callback;
  };

  /// What event handlers touch; they may outlive the session by one call.
  struct Shared {
    std::mutex mutex;
    std::condition_variable changed;
    std::unique_ptr<TextModel> model;
    uint64_t events =
        0;  ///< change events so far, to tell whether one came while the text was read
    bool gone = false;
    bool rereading = false;
    std::set<uint64_t> late;  ///< inserts that timed out and may still happen
    /// What is known of inserts that ended unknown; refused: nothing is outstanding.
    InsertOutcome lateResult = InsertOutcome::refused;
    std::vector<std::shared_ptr<Watcher>> watchers;
    QueueRef queue;
    std::function<void()> reread;
  };

  /// A single-line field's caret and selection, to be put back.
  struct Caret {
    int offset = 0;
    int selectionStart = 0;
    int selectionEnd = 0;
  };

  TextSession(AtspiBus& bus, AxElement element, TextConvention convention);
  Status subscribe();
  Status readFirstText(const Budget& budget);
  /// Reads the text until no event came meanwhile and takes it over.
  Result<TextModel::Effect> readText(const Budget& budget);
  Result<std::string> fetchText(const Budget& budget);
  InsertOutcome confirm(uint64_t number, const Budget& budget);
  InsertOutcome readBack(const std::string& textBefore, const Budget& budget);
  InsertOutcome outcomeOf(const Error& error, uint64_t number);
  std::optional<Caret> caret(const Budget& budget);
  void restore(const Caret& before, int insertedAt, int insertedUnits, const Budget& budget);

  static void onEvent(Shared& state, const TextEvent& event);
  static void onGone(Shared& state);
  static void act(Shared& state, const TextModel::Effect& effect);

  AtspiBus& bus_;
  const AxElement element_;
  const TextConvention convention_;
  bool singleLine_ = false;
  std::mutex inserting_;
  std::shared_ptr<Shared> state_ = std::make_shared<Shared>();
  std::vector<SubscriptionHandle> subscriptions_;
};

}  // namespace kestrin::atspi
