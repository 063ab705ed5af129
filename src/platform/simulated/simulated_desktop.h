#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/accessibility.h"
#include "platform/dispatch/dispatch.h"
#include "platform/dispatch/sanitizers.h"
#include "platform/key_monitor.h"
#include "platform/lifetime.h"
#include "platform/workspace.h"

namespace kestrin {

/// What an element does when text is inserted through accessibility.
enum class InsertBehaviour {
  works,
  liesTrue,  ///< says yes and changes nothing
  refuses,   ///< fails at once, unchanged
  hangs,     ///< no answer within the deadline; the insert lands later
  dies,      ///< the program ends in the middle of the call
};

struct SimulatedElement {
  std::string path;  ///< unique in its application
  std::string role = "AXTextArea";
  std::string text;
  TextRange selection;  ///< the caret when empty; UTF-16
  bool editable = true;
  bool acceptsPaste = true;
  bool acceptsInsert = true;  ///< offers editable text to accessibility
  InsertBehaviour insertBehaviour = InsertBehaviour::works;
  /// On the screen; a click inside focuses the element. Empty: cannot be clicked.
  Point origin;
  Point size;
};

struct SimulatedTab {
  std::string url;
  std::string title;
  std::string text;
};

struct SimulatedWindow {
  uint64_t id = 0;
  std::string title;
  std::vector<SimulatedElement> elements;
  std::string focusedPath;  ///< the element that has (or gets) the keyboard focus; empty: none
  std::vector<SimulatedTab> tabs;
  size_t activeTab = 0;
};

struct SimulatedApplication {
  int pid = 0;
  std::string desktopId;
  std::string name;
  std::string toolkit = "gtk";
  std::vector<SimulatedWindow> windows;
};

/// One thing that happened on the desktop, in order.
struct DesktopEvent {
  Duration at{};       ///< of the engine's steady clock
  std::string what;    ///< "chord", "paste", "activate", "insert", "user text", "clipboard", ...
  std::string detail;  ///< "control+v", "7", the text
  bool operator==(const DesktopEvent&) const = default;
};

/// The one scripted desktop behind the simulated workspace, pasteboard, input, key monitor and
/// accessibility: applications with windows and text elements, the stacking order, the clipboard,
/// the pointer and the user's keyboard. A paste chord pastes the clipboard, as it is when the
/// program gets round to it, into the element that had the focus at the chord. Everything that
/// happens is recorded.
///
/// Not thread-safe: it belongs to the simulation's thread (or to one test thread). It stands for
/// other programs, so the thread sanitizer looks away: its state neither races with the product nor
/// orders the product's queues.
class SimulatedDesktop {
 public:
  explicit SimulatedDesktop(Dispatch& dispatch);
  ~SimulatedDesktop();

  // The world. References stay valid until an application is added or removed.

  /// Its windows go to the front in their order, the last one becomes active.
  void addApplication(SimulatedApplication application);
  /// The program ends: its windows and elements are gone.
  void removeApplication(int pid);
  const std::vector<SimulatedApplication>& applications() const { return applications_; }
  SimulatedApplication* application(int pid);
  SimulatedApplication* applicationOfWindow(uint64_t windowId);
  SimulatedWindow* window(uint64_t id);
  SimulatedElement* element(int pid, const std::string& path);
  /// The element's window; 0 when there is none.
  uint64_t windowOf(int pid, const std::string& path);

  /// How the elements of a program are named on the accessibility bus, and back (0: not ours).
  static AxElement axElement(int pid, const std::string& path);
  static int pidOf(const AxElement& element);

  /// Front to back.
  const std::vector<uint64_t>& stacking() const { return stacking_; }
  uint64_t activeWindow() const { return activeWindow_; }
  /// Makes the window active and raises it; false when there is none.
  bool activate(uint64_t windowId);
  void closeWindow(uint64_t windowId);
  /// The focused element of the active window.
  SimulatedElement* focusedElement();
  /// Gives an element the focus inside its window (the active window stays).
  void focusElement(int pid, const std::string& path);

  // Text. UTF-16 offsets; ranges are clamped.

  enum class Author { user, accessibility, paste };
  /// Replaces a range of the element's text and tells the text observers. Carets and selections
  /// behind the range move along. False when the element is gone.
  bool replaceText(int pid, const std::string& path, TextRange range, const std::string& text,
                   Author author);
  /// The user types at the element's caret, replacing the selection.
  bool userTypes(int pid, const std::string& path, const std::string& text);

  using TextObserver =
      std::function<void(int pid, const std::string& path, TextChange change, Author author)>;
  SubscriptionHandle observeText(TextObserver observer);

  // The clipboard.

  struct Clipboard {
    std::optional<std::string> text;
    bool ours = false;
    int fetches = 0;  ///< by programs of the desktop, of our last content
  };
  Clipboard clipboard() const {
    const dispatch::order::Unobserved unobserved;
    return clipboard_;
  }
  void setClipboard(std::optional<std::string> text, bool ours);
  /// Another program copies: we lose the clipboard.
  void userCopies(const std::string& text) { setClipboard(text, false); }
  /// A program reads the clipboard; counts as a fetch while it is ours.
  std::optional<std::string> fetchClipboard();
  /// Signalled at every fetch.
  void addFetchWaiter(std::weak_ptr<Semaphore> waiter) {
    const dispatch::order::Unobserved unobserved;
    fetchWaiters_.push_back(std::move(waiter));
  }

  // Keyboard and pointer. Modifiers: "control", "shift", "alt", "super".

  std::set<std::string> heldModifiers;
  Point pointer{640, 400};
  std::set<int> heldButtons;
  Point screenSize{1280, 800};
  /// The program's time from a paste chord to its reading of the clipboard.
  Duration pasteDelay = std::chrono::milliseconds(6);
  /// From a request to activate a window to the focus.
  Duration activationDelay = std::chrono::milliseconds(5);

  /// A chord arrives at the active window.
  void deliverChord(const std::vector<std::string>& modifiers, const std::string& key);
  /// A button goes down or up at the pointer.
  void deliverButton(int button, bool down);

  /// The user's hands on the hold key, and on another key while it is held.
  void pressHoldKey();
  void releaseHoldKey();
  void pressOtherKey();
  SubscriptionHandle observeKeys(std::function<void(KeyEdge)> observer);

  // Programs that are installed, and what was opened.

  std::vector<InstalledApplication> installed;
  std::vector<std::string> opened;

  // The record.

  void record(std::string what, std::string detail);
  const std::vector<DesktopEvent>& events() const { return events_; }
  /// Details of the events of one kind, in order.
  std::vector<std::string> recorded(const std::string& what) const;

 private:
  std::optional<TextRange> selectionOf(int pid, const std::string& path);
  void pasteInto(int pid, const std::string& path);
  void emitKey(KeyEdge edge);

  Dispatch& dispatch_;
  QueueRef queue_;
  std::vector<SimulatedApplication> applications_;
  std::vector<uint64_t> stacking_;
  uint64_t activeWindow_ = 0;
  Clipboard clipboard_;
  std::vector<std::weak_ptr<Semaphore>> fetchWaiters_;
  bool holdKeyDown_ = false;
  int nextObserver_ = 0;
  std::shared_ptr<std::map<int, TextObserver>> textObservers_;
  std::shared_ptr<std::map<int, std::function<void(KeyEdge)>>> keyObservers_;
  std::vector<DesktopEvent> events_;
  Lifetime lifetime_;
};

}  // namespace kestrin
