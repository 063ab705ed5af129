#pragma once

#include <functional>
#include <list>
#include <memory>
#include <pulse/pulseaudio.h>
#include <string>

#include "platform/audio.h"
#include "platform/lifetime.h"

namespace kestrin::pulse {

class Connection;

/// An event of the audio thread's clock that is due once. Set, cancelled and destroyed with the
/// lock held.
class Alarm {
 public:
  Alarm() = default;
  ~Alarm() { cancel(); }
  Alarm(const Alarm&) = delete;
  Alarm& operator=(const Alarm&) = delete;
  void set(Connection& connection, Duration delay, std::function<void()> ring);
  void cancel();
  bool isSet() const { return event_ != nullptr; }

 private:
  pa_time_event* event_ = nullptr;
  pa_mainloop_api* api_ = nullptr;
  std::function<void()> ring_;
};

/// The connection to the sound server and the audio thread that serves it. Connects when first
/// needed, and again when the server has gone and come back. Everything that touches the server
/// happens while a `Lock` is held; callbacks of the server run on the audio thread with the lock
/// held.
class Connection {
 public:
  /// `server` as in PULSE_SERVER; empty is the user's own.
  static std::shared_ptr<Connection> make(std::string server);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Excludes the audio thread. On the audio thread itself it holds already and this does nothing.
  /// Not to be nested around anything that waits: only the innermost would be let go.
  class Lock {
   public:
    explicit Lock(Connection& connection);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pa_threaded_mainloop* taken_;
  };

  // With the lock held:

  /// Ready to be asked, or why not; waits at most 2 s, as the others do.
  Status connect();
  /// Never null after the first `connect`, though it may have ended.
  pa_context* context() const { return context_; }
  /// Waits until `done` (true) or too long; other threads and the audio thread run meanwhile.
  bool waitUntil(const std::function<bool()>& done);
  /// Waits for an operation and releases it; `what` is for the error's text.
  Status finish(pa_operation* operation, const std::string& what);
  /// Wakes everybody in `waitUntil`.
  void signal();
  bool onAudioThread() const;
  /// Runs `job` on the audio thread and returns when it has ended.
  void runOnAudioThread(std::function<void()> job);
  /// `changed` runs on the audio thread when the server's defaults may have changed. The handle
  /// goes with the lock held.
  SubscriptionHandle observeDefaults(std::function<void()> changed);
  /// The server's last complaint as an error.
  Error lastError(const std::string& what) const;

 private:
  friend class Alarm;
  explicit Connection(std::string server) : server_(std::move(server)) {}
  void renew();
  void discard();
  void subscribe();

  std::string server_;
  bool running_ = false;
  bool subscribed_ = false;
  std::list<std::function<void()>> observers_;
  pa_threaded_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
};

}  // namespace kestrin::pulse
