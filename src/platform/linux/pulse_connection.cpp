#include "platform/linux/pulse_connection.h"

#include <utility>

namespace kestrin::pulse {
namespace {

/// A healthy server answers in a millisecond; past this it hangs.
constexpr std::chrono::seconds patience(2);

}  // namespace

Connection::Lock::Lock(Connection& connection)
    : taken_(connection.onAudioThread() ? nullptr : connection.loop_) {
  if (taken_) pa_threaded_mainloop_lock(taken_);
}

Connection::Lock::~Lock() {
  if (taken_) pa_threaded_mainloop_unlock(taken_);
}

std::shared_ptr<Connection> Connection::make(std::string server) {
  std::shared_ptr<Connection> connection(new Connection(std::move(server)));
  connection->loop_ = pa_threaded_mainloop_new();
  pa_threaded_mainloop_set_name(connection->loop_, "kestrin-audio");
  connection->running_ = pa_threaded_mainloop_start(connection->loop_) == 0;
  return connection;
}

Connection::~Connection() {
  {
    const Lock lock(*this);
    discard();
  }
  pa_threaded_mainloop_stop(loop_);
  pa_threaded_mainloop_free(loop_);
}

void Connection::renew() {
  discard();
  context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "Kestrin");
  pa_context_set_state_callback(
      context_, [](pa_context*, void* self) { static_cast<Connection*>(self)->signal(); }, this);
  // A server that nobody started is reported, not started behind the user's back.
  pa_context_connect(context_, server_.empty() ? nullptr : server_.c_str(), PA_CONTEXT_NOAUTOSPAWN,
                     nullptr);
}

void Connection::discard() {
  if (!context_) return;
  pa_context_set_state_callback(context_, nullptr, nullptr);
  pa_context_disconnect(context_);
  pa_context_unref(context_);
  context_ = nullptr;
  subscribed_ = false;
}

void Connection::subscribe() {
  if (std::exchange(subscribed_, true)) return;
  pa_context_set_subscribe_callback(
      context_,
      [](pa_context*, pa_subscription_event_type_t, uint32_t, void* self) {
        for (const auto& changed : static_cast<Connection*>(self)->observers_) changed();
      },
      this);
  pa_operation* begun =
      pa_context_subscribe(context_, PA_SUBSCRIPTION_MASK_SERVER, nullptr, nullptr);
  if (begun) pa_operation_unref(begun);
}

SubscriptionHandle Connection::observeDefaults(std::function<void()> changed) {
  const auto place = observers_.insert(observers_.end(), std::move(changed));
  return onUnsubscribe([this, place] { observers_.erase(place); });
}

bool Connection::onAudioThread() const { return pa_threaded_mainloop_in_thread(loop_) != 0; }

void Connection::signal() { pa_threaded_mainloop_signal(loop_, 0); }

Status Connection::connect() {
  if (!running_) return fail("Audio", audioRefused, "The audio thread could not be started.");
  const auto state = [this] {
    return context_ ? pa_context_get_state(context_) : PA_CONTEXT_FAILED;
  };
  if (state() == PA_CONTEXT_READY) return {};
  if (!PA_CONTEXT_IS_GOOD(state())) renew();
  waitUntil([&] { return state() == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(state()); });
  if (state() == PA_CONTEXT_READY) {
    subscribe();
    return {};
  }
  const std::string reason =
      PA_CONTEXT_IS_GOOD(state()) ? "it does not answer" : pa_strerror(pa_context_errno(context_));
  // Ended but kept: another thread may be about to ask it, and then gets an error.
  pa_context_disconnect(context_);
  return fail("Audio", noSoundServer, "No sound server is reachable (" + reason + ").");
}

bool Connection::waitUntil(const std::function<bool()>& done) {
  // On the audio thread nobody else could bring the answer.
  if (onAudioThread()) return done();
  bool late = false;
  Alarm alarm;
  alarm.set(*this, patience, [&] {
    late = true;
    signal();
  });
  while (!done() && !late) pa_threaded_mainloop_wait(loop_);
  return done();
}

Status Connection::finish(pa_operation* operation, const std::string& what) {
  if (!operation) return fail(lastError(what));
  pa_operation_set_state_callback(
      operation, [](pa_operation*, void* self) { static_cast<Connection*>(self)->signal(); }, this);
  waitUntil([&] { return pa_operation_get_state(operation) != PA_OPERATION_RUNNING; });
  const bool done = pa_operation_get_state(operation) == PA_OPERATION_DONE;
  pa_operation_cancel(operation);
  pa_operation_unref(operation);
  if (!done) return fail("Audio", noSoundServer, what + ": the sound server does not answer.");
  return {};
}

void Connection::runOnAudioThread(std::function<void()> job) {
  if (onAudioThread()) return job();
  struct Once {
    Connection& connection;
    std::function<void()> job;
    bool done = false;
  } once{*this, std::move(job)};
  pa_mainloop_api_once(
      pa_threaded_mainloop_get_api(loop_),
      [](pa_mainloop_api*, void* userdata) {
        auto& once = *static_cast<Once*>(userdata);
        once.job();
        once.done = true;
        once.connection.signal();
      },
      &once);
  while (!once.done) pa_threaded_mainloop_wait(loop_);
}

Error Connection::lastError(const std::string& what) const {
  const int code = pa_context_errno(context_);
  const bool gone = !PA_CONTEXT_IS_GOOD(pa_context_get_state(context_));
  return {"Audio",
          gone                      ? noSoundServer
          : code == PA_ERR_NOENTITY ? noAudioDevice
                                    : audioRefused,
          what + ": " + pa_strerror(code) + "."};
}

void Alarm::set(Connection& connection, Duration delay, std::function<void()> ring) {
  cancel();
  ring_ = std::move(ring);
  api_ = pa_threaded_mainloop_get_api(connection.loop_);
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(delay).count();
  event_ = pa_context_rttime_new(
      connection.context(), pa_rtclock_now() + pa_usec_t(microseconds),
      [](pa_mainloop_api*, pa_time_event*, const timeval*, void* self) {
        static_cast<Alarm*>(self)->ring_();
      },
      this);
}

void Alarm::cancel() {
  if (event_) api_->time_free(event_);
  event_ = nullptr;
}

}  // namespace kestrin::pulse
