#include "app/doctor.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>

#include "services/local/local_asr_service.h"

namespace kestrin {
namespace {

using namespace std::chrono_literals;
using State = Finding::State;

constexpr auto listenFor = 700ms;
constexpr auto serviceTimeout = 3s;
constexpr auto recogniserTimeout = 15s;
/// Below this even a quiet room is suspiciously quiet: muted, or nothing plugged in.
constexpr float silence = 1e-5F;

std::string_view mark(State state) {
  switch (state) {
    case State::ok:
      return "✅ ";
    case State::warning:
      return "⚠️ ";
    case State::missing:
      return "❌ ";
  }
  return "";
}

std::string_view stateName(State state) {
  switch (state) {
    case State::ok:
      return "ok";
    case State::warning:
      return "warning";
    case State::missing:
      return "missing";
  }
  return "";
}

Finding noMicrophone() {
  return {State::missing, "Microphone", "there is none",
          "plug one in, or choose it in the sound settings"};
}

}  // namespace

std::string Finding::line() const {
  auto text = std::string(mark(state)) + check + ": " + detail;
  if (!mend.empty()) text += " → " + mend;
  return text;
}

Json Finding::toJson() const {
  return Json::object(
      {{"check", check}, {"state", stateName(state)}, {"detail", detail}, {"mend", mend}});
}

std::vector<Finding> Doctor::examine() {
  const auto& at = options_.endpoints;
  std::vector<Finding> findings{checkDisplay(),       checkKey(),   checkInput(),
                                checkAccessibility(), checkSound(), checkMicrophone()};
  // Without a display there is nothing to be above.
  if (!options_.display.empty()) findings.insert(findings.begin() + 1, checkOverlay());
  findings.push_back(checkRecogniserAnswers());
  if (findings.back().state == State::ok) findings.push_back(checkRecognition());
  findings.push_back(checkService("Agent", at.agent + "/health", true));
  findings.push_back(checkService("Language model", at.llm + "/health", false));
  findings.push_back(checkService("Backend", at.backend + "/", false));
  findings.push_back(checkSecrets());
  return findings;
}

bool Doctor::allThere(const std::vector<Finding>& findings) {
  return std::none_of(findings.begin(), findings.end(),
                      [](const Finding& finding) { return finding.state == State::missing; });
}

Finding Doctor::checkDisplay() {
  const auto screen = platform_.workspace.screenSize();
  if (options_.display == "Wayland" && !screen) {
    return {State::ok, "Display", "Wayland, without XWayland", ""};
  }
  if (options_.display.empty() || !screen) {
    return {State::missing, "Display",
            screen ? "no display in this session" : screen.error().description,
            "run it inside a desktop session"};
  }
  return {State::ok, "Display",
          options_.display + ", " + std::to_string(screen->x) + " × " + std::to_string(screen->y),
          ""};
}

Finding Doctor::checkOverlay() const {
  if (options_.overlayLoss.empty()) return {State::ok, "Overlay", "above all windows", ""};
  return {State::warning, "Overlay", options_.overlayLoss,
          "a compositor with a layer shell, or an X11 session, shows it above all windows"};
}

Finding Doctor::checkKey() {
  const std::string bindings =
      "bind \"kestrin press\" and \"kestrin release\" (or \"kestrin toggle\") to a key of your "
      "desktop";
  const auto keys = platform_.keyMonitor.availableKeys();
  if (keys.empty()) {
    return {State::missing, "Hold key", "no key can be watched in this session", bindings};
  }
  if (options_.keyTrial == KeyTrial::desktopBinds) {
    return {State::ok, "Hold key", options_.holdKey + ", as the desktop binds it", ""};
  }
  if (options_.keyTrial == KeyTrial::looks) return {State::ok, "Hold key", options_.holdKey, ""};
  const auto started = platform_.keyMonitor.start(options_.holdKey, [](KeyEdge) {});
  if (!started) return {State::missing, "Hold key", started.error().description, bindings};
  platform_.keyMonitor.stop();
  return {State::ok, "Hold key", options_.holdKey, ""};
}

Finding Doctor::checkInput() {
  const auto pointer = platform_.input.pointer();
  if (pointer) return {State::ok, "Paste", "keys can be sent", ""};
  return {State::missing, "Paste", pointer.error().description,
          "texts stay on the clipboard; use an X11 session, or XWayland"};
}

Finding Doctor::checkAccessibility() {
  const auto available = platform_.accessibility.available();
  if (available) return {State::ok, "Accessibility bus", "answers", ""};
  return {
      State::missing, "Accessibility bus", available.error().description,
      "install at-spi2-core and log in again; programs started before may have to be restarted"};
}

Finding Doctor::checkSound() {
  const auto available = platform_.audio.available();
  if (available) return {State::ok, "Sound server", "answers", ""};
  return {State::missing, "Sound server", available.error().description,
          "start PipeWire or PulseAudio (systemctl --user start pipewire-pulse or pulseaudio)"};
}

Finding Doctor::checkMicrophonePresence() {
  const auto sound = checkSound();
  if (sound.state != State::ok) return {sound.state, "Microphone", sound.detail, sound.mend};
  const auto format = platform_.audio.inputFormat("");
  if (format.sampleRate == 0) return noMicrophone();
  return {State::ok, "Microphone", std::to_string(format.sampleRate) + " Hz", ""};
}

Finding Doctor::checkMicrophone() {
  const auto format = platform_.audio.inputFormat("");
  if (format.sampleRate == 0) return noMicrophone();
  auto peak = std::make_shared<std::atomic<float>>(-1.0F);
  CaptureOptions capture;
  capture.framesPerBlock = 1024;
  capture.onBlock = [peak](const float* samples, int frames, const AudioFormat& shape) {
    float highest = std::max(peak->load(), 0.0F);
    for (int i = 0; i < frames * shape.channels; ++i)
      highest = std::max(highest, std::abs(samples[i]));
    peak->store(highest);
  };
  const auto opened = platform_.audio.capture(std::move(capture));
  if (!opened) {
    return {State::missing, "Microphone", opened.error().description, "look at the sound settings"};
  }
  platform_.dispatch.clock().sleep(listenFor, "the microphone's level");
  (*opened)->stop();
  const float level = peak->load();
  if (level < 0) {
    return {State::missing, "Microphone", "it opens but delivers nothing",
            "look at the sound settings; the device may be suspended or in use"};
  }
  if (level < silence) {
    return {State::warning, "Microphone", "it is silent",
            "it may be muted: look at the sound settings"};
  }
  const int percent = static_cast<int>(std::lround(std::min(level, 1.0F) * 100));
  return {
      State::ok, "Microphone",
      std::to_string(format.sampleRate) + " Hz, highest level " + std::to_string(percent) + " %",
      ""};
}

std::string Doctor::serviceMend() const {
  if (platform_.settings.string("pref_serviceHost", "companion") != "companion") {
    return "start the services that pref_serviceHost names";
  }
  if (!platform_.processes.find(options_.companionProgram)) {
    return "kestrin-companion is not installed: install it, or set pref_serviceHost to external";
  }
  return "start kestrin, which starts them";
}

Finding Doctor::checkService(const std::string& name, const std::string& url, bool needed) {
  const auto session = platform_.http.makeSession({.requestTimeout = serviceTimeout});
  struct Answer {
    std::shared_ptr<Semaphore> arrived;
    std::atomic<int> status{0};
  };
  auto answer = std::make_shared<Answer>();
  answer->arrived = platform_.dispatch.makeSemaphore(0, name + " answers");
  session->data({.url = url}, [answer](const Result<HttpResponse>& response) {
    answer->status = response ? response->status : 0;
    answer->arrived->signal();
  });
  answer->arrived->wait(serviceTimeout + 1s);
  const int status = answer->status;
  if (status == 200) return {State::ok, name, "answers at " + url, ""};
  const std::string found =
      status == 0 ? "no answer at " + url : "status " + std::to_string(status) + " at " + url;
  if (needed) return {State::missing, name, found, serviceMend()};
  return {State::warning, name, found, "dictation works without it"};
}

Finding Doctor::checkRecogniserAnswers() {
  return checkService("Recogniser", options_.endpoints.asr + "/", true);
}

Finding Doctor::checkRecognition() {
  LocalASRService recogniser(platform_.dispatch, platform_.http, platform_.files, platform_.random,
                             logger_, options_.endpoints);
  struct Answer {
    std::shared_ptr<Semaphore> arrived;
    std::optional<Error> error;
  };
  auto answer = std::make_shared<Answer>();
  answer->arrived = platform_.dispatch.makeSemaphore(0, "a transcript");
  const auto began = platform_.dispatch.clock().steadyNow();
  // Half a second of silence: no words, but an answer.
  recogniser.transcribePCM(Bytes(16000, '\0'), 16000,
                           [answer](const Result<LocalASRResult>& result) {
                             if (!result) answer->error = result.error();
                             answer->arrived->signal();
                           });
  if (!answer->arrived->wait(recogniserTimeout)) {
    return {State::missing, "Recognition", "no transcript within 15 s", serviceMend()};
  }
  if (answer->error) {
    return {State::missing, "Recognition", answer->error->description, serviceMend()};
  }
  const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
      platform_.dispatch.clock().steadyNow() - began);
  return {State::ok, "Recognition",
          "half a second of sound took " + std::to_string(took.count()) + " ms", ""};
}

Finding Doctor::checkSecrets() {
  if (platform_.secrets.persistent()) return {State::ok, "Secret store", "answers", ""};
  return {
      State::warning, "Secret store", "there is none, or it is locked",
      "keys for services are forgotten at the end; unlock or install gnome-keyring or another one"};
}

}  // namespace kestrin
