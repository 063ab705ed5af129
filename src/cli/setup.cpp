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
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  ~EchoOff() {
    if (!known_) return;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
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

void askGeminiKey(GeminiKeyManager& keys) {
  const bool known = !keys.apiKey().empty();
  std::cout << "Gemini API key" << (known ? " [keep the present one]" : "") << ": " << std::flush;
  std::string key;
  {
    const EchoOff quiet;
    std::getline(std::cin, key);
  }
  if (!text::trim(key).empty()) keys.save(key);
}

void askLanguageModel(CoreServices& core) {
  auto& settings = core.platform.settings;
  const std::string now = settings.boolean("pref_useLocalLLM") ? "local"
                          : !core.geminiKey.apiKey().empty()   ? "gemini"
                                                               : "none";
  for (;;) {
    const auto choice = text::lower(ask("Language model (none, local, gemini)", now));
    if (choice == "gemini") {
      askGeminiKey(core.geminiKey);
    } else if (choice == "none") {
      core.geminiKey.save("");
    } else if (choice != "local") {
      std::cout << "\"" << choice << "\" is none of them.\n";
      if (!std::cin) return;
      continue;
    }
    settings.set("pref_useLocalLLM", choice == "local");
    return;
  }
}

SetupItems examine(LinuxPlatform& backends, CoreServices& core) {
  SetupChecks checks(core, examinationOptions(backends.platform()));
  SetupItems items;
  core.platform.dispatch.globalQueue()->post([&] {
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

  const auto items = examine(backends, core);
  for (const auto& item : items) std::cout << item.finding.line() << "\n";
  int status = done;
  if (!acceptAsItStands) {
    askName(platform.settings);
    askLanguageModel(core);
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
