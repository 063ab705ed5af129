#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "diagnostics/logger.h"
#include "platform/json/json.h"
#include "platform/platform.h"
#include "services/local/endpoints.h"

namespace kestrin {

/// What one check found.
struct Finding {
  enum class State {
    ok,
    warning,  ///< dictation works, something about it does not
    missing,  ///< dictation does not work, or not everywhere
  };
  State state = State::ok;
  std::string check;   ///< "Microphone"
  std::string detail;  ///< what was found
  std::string mend;    ///< what would mend it; empty when all is well

  /// "✅ Microphone: ...", with the mend behind.
  std::string line() const;
  Json toJson() const;
};

/// Checks everything that dictation needs. Every check is bounded in time; all together take some
/// seconds at worst. Off the main queue.
class Doctor {
 public:
  /// How the hold key is examined.
  enum class KeyTrial {
    tries,         ///< watches it for a moment
    desktopBinds,  ///< watching it would ask the user something
    looks,         ///< the monitor belongs to somebody else: only whether a key can be watched
  };
  struct Options {
    Endpoints endpoints;
    std::string holdKey;
    /// "X11", "Wayland" or empty.
    std::string display;
    /// What the overlay lacks in this session; empty: nothing.
    std::string overlayLoss;
    KeyTrial keyTrial = KeyTrial::tries;
    std::string companionProgram = "kestrin-companion";
  };

  Doctor(Platform& platform, Logger& logger, Options options)
      : platform_(platform), logger_(logger), options_(std::move(options)) {}

  std::vector<Finding> examine();
  static bool allThere(const std::vector<Finding>& findings);

  /// Single checks, for those who need no more. As above: off the main queue.
  Finding checkKey();
  Finding checkAccessibility();
  /// There is a sound server and a microphone; listens to nothing.
  Finding checkMicrophonePresence();
  Finding checkRecogniserAnswers();

 private:
  Finding checkDisplay();
  Finding checkOverlay() const;
  Finding checkInput();
  Finding checkSound();
  Finding checkMicrophone();
  Finding checkService(const std::string& name, const std::string& url, bool needed);
  Finding checkRecognition();
  Finding checkSecrets();
  std::string serviceMend() const;

  Platform& platform_;
  Logger& logger_;
  Options options_;
};

}  // namespace kestrin
