#pragma once

#include <functional>
#include <string>

#include "platform/result.h"

namespace kestrin {

/// What a terminal, a script or a compositor's own key binding can ask of the running application.
/// `elevate` and `lower`: whether actions may press keys and run scripts, until the application
/// ends.
enum class ControlCommand { press, release, toggle, cancel, show, quit, retry, elevate, lower };

enum ControlError {
  controlNoBus = 1,           ///< no session bus
  controlNotRunning = 2,      ///< no application answers to the name
  controlNoAnswer = 3,        ///< none within the deadline of 2 s; it may still obey
  controlRefused = 4,         ///< it answered with an error
  controlAlreadyRunning = 5,  ///< another application owns the name
};

/// The running application's place on the session bus: name "com.kestrin.Kestrin", object
/// "/com/kestrin/Kestrin", interface "com.kestrin.Control" with the methods Press, Release, Toggle,
/// Cancel, Show, Quit, Retry, Elevate, Lower, Call with one text, Status, which returns a JSON
/// object as text, and Log, which returns a JSON array.
/// Errors: domain "ControlBus", codes `ControlError`.
class ControlBus {
 public:
  virtual ~ControlBus() = default;

  struct Handlers {
    /// Any thread; must not wait (post to the main queue).
    std::function<void(ControlCommand)> onCommand;
    /// Any thread; must not wait. The JSON text for `Status`.
    std::function<std::string()> status;
    /// Any thread; must not wait. "answer", "hangup", or whom to call.
    std::function<void(const std::string&)> onCall;
    /// Any thread; must not wait. The JSON text for `Log`.
    std::function<std::string()> log;
  };
  /// Becomes the one running application until `stop` (or destruction), after which no handler
  /// runs. `controlAlreadyRunning` when there is one.
  virtual Status serve(Handlers handlers) = 0;
  /// Not from a handler.
  virtual void stop() = 0;

  /// To the running application, which may be this process. Blocking, at most 2 s: off the main
  /// queue.
  virtual Status send(ControlCommand command) = 0;
  virtual Result<std::string> status() = 0;
  virtual Result<std::string> log() = 0;
  /// As `Handlers::onCall`.
  virtual Status call(const std::string& what) = 0;
};

}  // namespace kestrin
