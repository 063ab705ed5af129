#pragma once

#include <atomic>
#include <condition_variable>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/linux/x11_connection.h"

namespace kestrin {

/// Owns the CLIPBOARD selection with a thread and a connection of its own, so that other programs
/// can fetch the text whatever the rest of the process does. When it ends it hands the text to a
/// clipboard manager, where there is one. Thread-safe.
class X11SelectionServer {
 public:
  static Result<std::unique_ptr<X11SelectionServer>> start(const std::string& display,
                                                           const std::string& domain);
  ~X11SelectionServer();

  /// Takes the selection for `text`; false when that did not work within `limit`.
  bool offer(std::string text, std::chrono::milliseconds limit);
  /// Leaves the clipboard empty, whoever owns it.
  bool clear(std::chrono::milliseconds limit);
  /// The text while the selection is ours.
  std::optional<std::string> ownText();
  /// How many times others have fetched what `offer` put there last.
  int fetches();
  bool waitForFetch(int seen, std::chrono::nanoseconds limit);
  /// True once the X server has gone: make a new one then.
  bool lost() const { return lost_; }

 private:
  /// A big text under way in pieces: the receiver takes each by deleting the property.
  struct Transfer {
    xcb_window_t requestor;
    xcb_atom_t property;
    xcb_atom_t type;
    std::shared_ptr<const std::string> bytes;
    size_t sent = 0;
    bool counts = true;  ///< still the present content
    Deadline patience;
  };
  using Text = std::shared_ptr<const std::string>;

  explicit X11SelectionServer(std::unique_ptr<X11Connection> connection);
  bool take(Text text, std::chrono::milliseconds limit);
  void serve();
  void beginTaking();
  void finishTaking(xcb_timestamp_t now);
  void handle(const xcb_generic_event_t& event);
  void answer(const xcb_selection_request_event_t& request);
  bool convert(xcb_window_t requestor, xcb_atom_t target, xcb_atom_t property);
  bool convertMultiple(xcb_window_t requestor, xcb_atom_t property);
  void continueTransfer(const xcb_property_notify_event_t& taken);
  void countFetch();
  void saveToManager();

  std::unique_ptr<X11Connection> x_;
  const xcb_atom_t clipboard_;
  const xcb_window_t window_;
  WakeEvent wake_;
  std::atomic<bool> stopping_ = false;
  std::atomic<bool> lost_ = false;

  std::mutex mutex_;  ///< guards what follows, up to the blank line
  std::condition_variable fetched_;
  std::optional<Text> wanted_;  ///< to take next; null: clear
  std::promise<bool> taken_;
  Text owned_;
  int fetches_ = 0;

  // Of the thread.
  xcb_timestamp_t ownedSince_ = 0;
  bool saved_ = false;
  std::list<Transfer> transfers_;

  std::mutex taking_;  ///< one `take` at a time
  std::thread thread_;
};

}  // namespace kestrin
