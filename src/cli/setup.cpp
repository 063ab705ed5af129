#include <iostream>
#include <termios.h>
#include <unistd.h>

#include "app/setup_checks.h"
#include "cli/commands.h"
#include "cli/examination.h"
#include "platform/linux/linux_platform.h"
#include "platform/text/text.h"
#include "usermodel/user_preferences.h"

namespace kestrin::cli {
namespace {

/// What is typed does not appear while this lives: for secrets.
class EchoOff {
 public:
  EchoOff() {
    known_ = tcgetattr(STDIN_FILENO, &before_) == 0;
    if (!known_) return;
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSADRAIN, &quiet);
  }
  ~EchoOff() {
    if (!known_) return;
    tcsetattr(STDIN_FILENO, TCSADRAIN, &before_);
    std::cout << "\n";
  }
  EchoOff(const EchoOff&) = delete;
  EchoOff& operator=(const EchoOff&) = delete;

 private:
  termios before_{};
  bool known_ = false;
};

/// An empty answer, and the end of the input, take what stands in brackets.
std::string ask(const std::string& question, const std::string& otherwise) {
  std::cout << question << " [" << otherwise << "]: " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  answer = text::trim(answer);
  return answer.empty() ? otherwise : answer;
}

void askName(SettingsStore& settings) {
  const auto name = ask("Your name", settings.string(UserPreferences::userNameKey));
  if (!name.empty()) settings.set(UserPreferences::userNameKey, name);
}

/// False when there is no key afterwards.
bool askGeminiKey(CoreServices& core) {
  const bool known = !core.geminiKey.apiKey().empty();
  std::cout << "Gemini API key" << (known ? " [keep the present one]" : "") << ": " << std::flush;
  std::string key;
  {
    const EchoOff quiet;
    std::getline(std::cin, key);
  }
  if (text::trim(key).empty()) return known;
  core.geminiKey.save(key);
  if (!core.platform.secrets.persistent()) {
    std::cout << "⚠️ No secret store answers: the key is forgotten when this program ends.\n";
  }
  return true;
}

/// Asks again until the answer can be taken; the end of the input changes nothing.
void askLanguageModel(CoreServices& core) {
  auto& settings = core.platform.settings;
  const bool hasKey = !core.geminiKey.apiKey().empty();
  const std::string remote = hasKey ? "gemini" : "none";
  const std::string now = settings.boolean("pref_useLocalLLM") ? "local" : remote;
  while (std::cin) {
    const auto choice = text::lower(ask("Language model (none, local, gemini)", now));
    if (choice == "gemini") {
      if (!askGeminiKey(core)) continue;
    } else if (choice == "none") {
      core.geminiKey.save("");
    } else if (choice != "local") {
      std::cout << "\"" << choice << "\" is none of them.\n";
      continue;
    }
    return settings.set("pref_useLocalLLM", choice == "local");
  }
}

SetupItems examine(LinuxPlatform& backends, SetupChecks& checks) {
  SetupItems items;
  backends.platform().dispatch.globalQueue()->post([&] {
    items = checks.examine();
    backends.mainLoop().quit(0);
  });
  backends.mainLoop().run();
  return items;
}

}  // namespace

int setup(bool acceptAsItStands) {
  if (!acceptAsItStands && isatty(STDIN_FILENO) == 0) {
    std::cerr << "kestrin: setup asks questions and standard input is no terminal; --yes accepts "
                 "everything as it stands\n";
    return wrongUsage;
  }
  LinuxPlatform backends([](const std::string& line) { std::cerr << "kestrin: " << line << "\n"; });
  auto& platform = backends.platform();
  CoreServices core(platform, Endpoints::fromEnvironment());
  const auto printLine = [](std::string_view line) { std::cerr << "kestrin: " << line << "\n"; };
  core.logger.setSink(printLine);

  SetupChecks checks(core, examinationOptions(platform));
  auto items = examine(backends, checks);
  for (const auto& item : items) std::cout << item.finding.line() << "\n";
  int status = done;
  if (!acceptAsItStands) {
    askName(platform.settings);
    askLanguageModel(core);
    items = checks.examineRequired();  // the answers may have mended something
    const auto missing = text::join(missingNames(items), ", ");
    if (!missing.empty() &&
        text::lower(ask("Start without " + missing + "? (yes, no)", "no"))[0] != 'y') {
      std::cerr << "kestrin: setup is not complete: " << missing << "\n";
      status = failed;
    }
  }
  if (status == done) {
    SetupRecord(platform.settings, core.machineIdentity).complete(items);
    std::cout << "Setup is complete.\n";
  }
  backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
