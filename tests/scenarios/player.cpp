#include <algorithm>
#include <stdexcept>

#include "app/application.h"
#include "platform/simulated/simulated_world.h"
#include "platform/text/text.h"
#include "scenarios/scenario.h"

namespace kestrin::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr int probePid = 99;
const std::string asrHost = "127.0.0.1:8001";
const std::string agentHost = "127.0.0.1:8765";

/// A tree that can be slow to answer: the snapshots of a press then come late.
struct SlowAccessibility : SimulatedAccessibility {
  using SimulatedAccessibility::SimulatedAccessibility;
  Duration answerTime{0};
  Result<AxElement> focusedElement(int pid) override {
    if (answerTime > Duration(0)) slowClock->sleep(answerTime, "a slow program");
    return SimulatedAccessibility::focusedElement(pid);
  }
  Clock* slowClock = nullptr;
};

struct ScenarioWorld : SimulatedWorld {
  explicit ScenarioWorld(uint64_t seed) : SimulatedWorld(seed) {
    slowAccessibility.slowClock = &dispatch.clock();
  }
  SlowAccessibility slowAccessibility{dispatch, desktop, &faults};
  Platform slowPlatform{dispatch,          http,       files,      random,    settings,
                        notifications,     processes,  keyMonitor, input,     slowAccessibility,
                        workspace,         pasteboard, audio,      browser,   secrets,
                        userNotifications, controls,   speech,     loginItem, place,
                        calendars,         webPages};
};

class Player {
 public:
  Player(const Scenario& scenario, uint64_t seed) : scenario_(scenario), world_(seed) {}

  ScenarioOutcome play(int fault);

 private:
  using Line = Scenario::Line;

  void setUp();
  void addApplication(const Line& line);
  void scriptServices();
  ScriptedReply asrReply();
  ScriptedReply agentReply(const Line& head, const std::vector<Line>& lines);
  ScriptedReply agentAnswers(const HttpRequest& request);
  void perform(const Line& what);
  void onMain(std::function<void()> job) { world_.dispatch.mainQueue()->post(std::move(job)); }
  void runTo(Duration sinceReady) {
    const Duration target = ready_ + sinceReady;
    if (target > world_.simulation->elapsed()) {
      world_.simulation->runFor(target - world_.simulation->elapsed());
    }
  }
  void speak(int ms);
  void checkExpectation(const Line& line);
  void checkNothingIsLost();
  void checkNextDictationWorks();
  void problem(const std::string& what) { outcome_.problems.push_back(what); }
  std::string textOf(int pid) {
    const SimulatedElement* element = world_.desktop.element(pid, "/text");
    return element ? element->text : std::string();
  }
  std::vector<std::string> undeliveredTexts() {
    std::vector<std::string> out;
    for (const auto& item : app_->undelivered().texts()) out.push_back(item.text);
    return out;
  }

  const Scenario& scenario_;
  ScenarioWorld world_;
  std::unique_ptr<Application> app_;
  Duration ready_{0};
  size_t nextScript_ = 0;
  std::string chunks_;             ///< all text that agents sent completely, of any stream
  std::vector<std::string> sent_;  ///< pieces of text that agents sent
  std::vector<std::string> statusLines_;
  bool userGaveUp_ = false;
  ScenarioOutcome outcome_;
};

void Player::setUp() {
  for (const Line& line : scenario_.applications) addApplication(line);
  world_.settings.set("pref_serviceHost", Json("external"));
  scriptServices();
  Application::Options options;
  options.endpoints = {"http://" + asrHost, "http://127.0.0.1:8082", "http://" + agentHost,
                       "http://127.0.0.1:8780"};
  app_ = std::make_unique<Application>(world_.slowPlatform, std::move(options));
  app_->startSequence().hooks.startAllBackgroundCaches = nullptr;
  app_->core().logger.setSink(
      [this](std::string_view line) { outcome_.log += std::string(line) + "\n"; });
  app_->mainWindow().onStatus = [this](const StatusLine& line) {
    statusLines_.push_back(line.text);
  };
  onMain([this] { app_->start(); });
  if (!world_.simulation->runUntil([this] { return app_->delegate().isAppReady; }, seconds(60))) {
    problem("the application does not become ready");
  }
  ready_ = world_.simulation->elapsed();
}

/// app PID NAME TOOLKIT ROLE "text with a | for the caret" [OPTION...]
void Player::addApplication(const Line& line) {
  SimulatedElement field;
  field.path = "/text";
  field.role = line.at(3);
  field.text = line.at(4);
  const size_t caret = std::min(field.text.find('|'), field.text.size());
  field.selection = {static_cast<int>(text::utf16Length(field.text.substr(0, caret))), 0};
  if (caret < field.text.size()) field.text.erase(caret, 1);
  for (size_t i = 5; i < line.size(); ++i) {
    if (line[i] == "no-insert") {
      field.acceptsInsert = false;
    } else if (line[i] == "no-paste") {
      field.acceptsPaste = false;
    } else {
      throw std::runtime_error("what is \"" + line[i] + "\"?");
    }
  }
  const int pid = std::stoi(line.at(0));
  world_.desktop.addApplication({pid,
                                 "org.example." + line.at(1),
                                 line.at(1),
                                 line.at(2),
                                 {{uint64_t(pid), line.at(1), {field}, "/text", {}, 0}}});
}

void Player::scriptServices() {
  for (const std::string& where :
       {asrHost + "/", agentHost + "/health", std::string("127.0.0.1:8082/health"),
        std::string("127.0.0.1:8780/*")}) {
    world_.http.on("*", where, ScriptedReply::json(Json::object()));
  }
  world_.http.on("POST", asrHost + "/transcribe/pcm",
                 [this](const HttpRequest&) { return asrReply(); });
  world_.http.on("POST", agentHost + "/process/stream",
                 [this](const HttpRequest& request) { return agentAnswers(request); });
}

/// asr MS {json} | asr MS refused|lost|never. Recordings take the scripts in order.
ScriptedReply Player::asrReply() {
  const size_t index = nextScript_++;
  if (index >= scenario_.scripts.size() || scenario_.scripts[index].asr.empty()) {
    return ScriptedReply::json(Json::object({{"transcript", "probe"}}));
  }
  const Line& line = scenario_.scripts[index].asr.front();
  const std::string& how = line.at(1);
  ScriptedReply reply = how == "refused" ? ScriptedReply::refused()
                        : how == "lost"  ? ScriptedReply::lost()
                        : how == "never" ? ScriptedReply::never()
                                         : ScriptedReply::body(how);
  return reply.after(milliseconds(std::stoi(line.at(0))));
}

/// The stream of the script whose transcript the request carries.
ScriptedReply Player::agentAnswers(const HttpRequest& request) {
  const auto body = Json::parse(request.body);
  const std::string transcript = body ? body->stringAt("transcript", "") : "";
  for (const Scenario::Script& script : scenario_.scripts) {
    if (script.asr.empty() || script.agent.empty()) continue;
    const auto asr = Json::parse(script.asr.front().at(1));
    if (asr && asr->stringAt("transcript", "") == transcript) {
      return agentReply(script.agent.front(), script.agent);
    }
  }
  ScriptedReply probe = ScriptedReply::events({});
  return probe.piece(milliseconds(5), "data: {\"chunk\":\"probe text\"}\n\n");
}

/// agent MS refused|lost|never, or a stream: agent MS chunk "text" | event {json} | raw "bytes" |
/// end | lost
ScriptedReply Player::agentReply(const Line& head, const std::vector<Line>& lines) {
  const milliseconds headDelay(std::stoi(head.at(0)));
  if (head.at(1) == "refused") return ScriptedReply::refused().after(headDelay);
  if (head.at(1) == "never") return ScriptedReply::never().after(headDelay);
  ScriptedReply reply = ScriptedReply::events({});
  bool isCommand = false;
  for (const Line& line : lines) {
    const milliseconds after(std::stoi(line.at(0)));
    const std::string& what = line.at(1);
    if (what == "chunk") {
      if (!isCommand) sent_.push_back(line.at(2));
      const Json event = Json::object({{"chunk", line.at(2)}});
      reply.piece(after, "data: " + event.dump() + "\n\n");
    } else if (what == "event") {
      isCommand = isCommand || text::contains(line.at(2), "\"command\"");
      reply.piece(after, "data: " + line.at(2) + "\n\n");
    } else if (what == "raw") {
      reply.piece(after, line.at(2));
    } else if (what == "lost" || what == "never") {
      reply.ending(what == "lost" ? ScriptedReply::End::lost : ScriptedReply::End::never, after);
    } else if (what == "end") {
      reply.ending(ScriptedReply::End::complete, after);
    } else {
      throw std::runtime_error("what is \"" + what + "\"?");
    }
  }
  return reply;
}

void Player::speak(int ms) {
  std::vector<float> tone(static_cast<size_t>(48 * ms));
  for (size_t i = 0; i < tone.size(); ++i) tone[i] = i % 96 < 48 ? 0.3f : -0.3f;
  world_.audio.speak("mic", std::move(tone), 48000);
}

void Player::perform(const Line& what) {
  const std::string& word = what.at(0);
  SimulatedDesktop& desktop = world_.desktop;
  const auto number = [&](size_t i) { return std::stoi(what.at(i)); };
  if (word == "press") {
    speak(3000);
    desktop.pressHoldKey();
  } else if (word == "release") {
    desktop.releaseHoldKey();
  } else if (word == "focus") {
    desktop.activate(static_cast<uint64_t>(number(1)));
  } else if (word == "type") {
    desktop.userTypes(number(1), "/text", what.at(2));
  } else if (word == "edit") {
    desktop.replaceText(number(1), "/text", {number(2), number(3)}, what.at(4),
                        SimulatedDesktop::Author::user);
  } else if (word == "copy") {
    desktop.userCopies(what.at(1));
  } else if (word == "quit") {
    desktop.removeApplication(number(1));
  } else if (word == "cancel") {
    userGaveUp_ = true;
    onMain([this] { app_->obey(ControlCommand::cancel); });
  } else if (word == "retry") {
    onMain([this] { app_->obey(ControlCommand::retry); });
  } else if (word == "jump") {
    world_.simulation->jump(milliseconds(number(1)));
  } else if (word == "insert") {
    static const std::map<std::string, InsertBehaviour> behaviours{
        {"works", InsertBehaviour::works},
        {"lies", InsertBehaviour::liesTrue},
        {"refuses", InsertBehaviour::refuses},
        {"hangs", InsertBehaviour::hangs},
        {"dies", InsertBehaviour::dies}};
    desktop.element(number(1), "/text")->insertBehaviour = behaviours.at(what.at(2));
  } else if (word == "slow-accessibility") {
    world_.slowAccessibility.answerTime = milliseconds(number(1));
  } else {
    throw std::runtime_error("what is \"" + word + "\"?");
  }
}

void Player::checkExpectation(const Line& line) {
  const std::string& word = line.at(0);
  const auto equal = [&](const std::string& found, const std::string& expected) {
    if (found != expected) problem(word + " is \"" + found + "\", expected \"" + expected + "\"");
  };
  const auto count = [&](size_t found, const std::string& expected) {
    equal(std::to_string(found), expected);
  };
  if (word == "text") {
    equal(textOf(std::stoi(line.at(1))), line.at(2));
  } else if (word == "front") {
    equal(std::to_string(world_.desktop.activeWindow()), line.at(1));
  } else if (word == "clipboard") {
    equal(world_.desktop.clipboard().text.value_or(""), line.at(1));
  } else if (word == "status") {
    if (std::find(statusLines_.begin(), statusLines_.end(), line.at(1)) == statusLines_.end()) {
      problem("never showed \"" + line.at(1) + "\" but:\n  " + text::join(statusLines_, "\n  "));
    }
  } else if (word == "last-status") {
    equal(statusLines_.back(), line.at(1));
  } else if (word == "requests") {
    count(world_.http.requests(line.at(1)).size(), line.at(2));
  } else if (word == "events") {
    count(world_.desktop.recorded(line.at(1)).size(), line.at(2));
  } else if (word == "undelivered") {
    count(app_->undelivered().texts().size() + app_->undelivered().recordings().size(), line.at(1));
  } else if (word == "log") {
    if (app_->core().logger.getEntries(line.at(1)).empty()) problem("log lacks " + line.at(1));
  } else {
    throw std::runtime_error("what is \"" + word + "\"?");
  }
}

/// Every piece an agent sent is in a document, on the clipboard or kept; or the user was told that
/// the dictation failed, or gave it up.
void Player::checkNothingIsLost() {
  const bool toldFailure =
      std::any_of(statusLines_.begin(), statusLines_.end(),
                  [](const std::string& line) { return line.rfind("❌", 0) == 0; });
  if (userGaveUp_ || toldFailure) return;
  std::string everywhere = world_.desktop.clipboard().text.value_or("");
  for (const auto& application : world_.desktop.applications()) {
    everywhere += "\n" + textOf(application.pid);
  }
  everywhere += text::join(undeliveredTexts(), "\n");
  for (const std::string& piece : sent_) {
    if (!text::contains(everywhere, text::trim(piece))) {
      problem("lost \"" + piece + "\", shown:\n  " + text::join(statusLines_, "\n  "));
    }
  }
}

void Player::checkNextDictationWorks() {
  world_.faults.arm(0);
  world_.desktop.releaseHoldKey();
  world_.slowAccessibility.answerTime = Duration(0);
  world_.simulation->runFor(seconds(5));
  addApplication({std::to_string(probePid), "Probe", "gtk", "AXTextArea", "|"});
  speak(2000);
  world_.desktop.pressHoldKey();
  world_.simulation->runFor(milliseconds(1500));
  world_.desktop.releaseHoldKey();
  nextScript_ = scenario_.scripts.size();
  world_.simulation->runFor(seconds(10));
  if (textOf(probePid) != "probe text") {
    problem("the next dictation gives \"" + textOf(probePid) + "\", shown:\n  " +
            text::join(statusLines_, "\n  "));
  }
  for (const std::string& line : world_.simulation->stuck()) problem("stuck: " + line);
}

ScenarioOutcome Player::play(int fault) {
  setUp();
  world_.faults.arm(fault);
  for (const Scenario::Event& event : scenario_.events) {
    runTo(event.at);
    perform(event.what);
    world_.simulation->runReady();
  }
  runTo(scenario_.events.back().at + seconds(45));
  outcome_.sites = world_.faults.sites();
  if (fault == 0) {
    for (const Line& line : scenario_.expectations) checkExpectation(line);
  }
  checkNothingIsLost();
  checkNextDictationWorks();
  // Jobs that are still under way use the application.
  onMain([this] { app_->stop(); });
  world_.simulation->runFor(seconds(400));
  return outcome_;
}

}  // namespace

ScenarioOutcome play(const Scenario& scenario, uint64_t seed, int fault) {
  return Player(scenario, seed).play(fault);
}

}  // namespace kestrin::test
