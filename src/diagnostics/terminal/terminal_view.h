#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "diagnostics/terminal/parsed_flags.h"
#include "diagnostics/terminal/report.h"
#include "diagnostics/terminal/terminal_services.h"
#include "platform/lifetime.h"

namespace kestrin {

/// The diagnostic terminal: a small command line over the application's own state and services. It
/// changes almost nothing and has no shell behind it but for the command "shell". Main queue only.
class TerminalView {
 public:
  static constexpr const char* header = "🔧 Kestrin Diagnostic Terminal";
  static constexpr const char* subtitle =
      "Access logs, data & Firestore • Type 'help' for commands";
  static constexpr const char* prompt = "kestrin>";
  static constexpr const char* placeholder = "Type command...";
  static constexpr const char* clearTitle = "Clear";
  /// Older text is dropped.
  static constexpr size_t mostSpans = 20'000;

  explicit TerminalView(TerminalServices services);
  ~TerminalView();

  // The input line.
  void setInput(const std::string& text) { input_ = text; }
  const std::string& input() const { return input_; }
  /// +1: an older entry, -1: a newer one.
  void navigateHistory(int direction);
  /// Enter.
  void executeCommand();

  /// Parses and runs one line; its whole output may come later.
  void processCommand(const std::string& line);
  /// Asks the process of "shell" or "docker" to end. False when none runs.
  bool stopProcess();
  bool hasProcess() const { return process_ != nullptr; }
  void clearTerminal();

  const std::vector<TerminalSpan>& output() const { return output_; }
  /// Grows with every clearing: what was drawn before is gone.
  int clearings() const { return clearings_; }
  const std::vector<std::string>& commandHistory() const { return commandHistory_; }
  /// Replies and processes that are still awaited.
  int pending() const { return pending_; }
  /// An error was printed since the last clearing.
  bool hasFailed() const { return hasFailed_; }

  /// After every change of the output or the input.
  std::function<void()> onChange;

 private:
  using Tokens = std::vector<std::string>;
  using Spans = std::vector<TerminalSpan>;
  struct Answer;
  using Show = std::function<void(const Answer&)>;

  void appendText(const std::string& text, TerminalColor color = TerminalColor::normal);
  void append(const Report& report);
  bool dispatch(const std::string& word, const Tokens& tokens);
  void showWelcome();
  void showHelp();
  void runShellCommand(const std::string& command);
  void startProcess(const std::string& program, const Tokens& arguments);
  void changed() {
    if (onChange) onChange();
  }

  // The application's own state: local_commands.cpp.
  void handleLogsCommand(const Tokens& tokens);
  void handleModesCommand(const Tokens& tokens);
  void handlePersonalityCommand(const Tokens& tokens);
  void handleConfigCommand(const Tokens& tokens);
  void handleStatsCommand(const Tokens& tokens);
  void handleUserCommand(const Tokens& tokens);
  void handleCalendarCommand(const Tokens& tokens);
  void handleDockerCommand(const Tokens& tokens);

  // The services: network_commands.cpp.
  void handleHistoryCommand(const Tokens& tokens);
  void handleResearchCommand(const Tokens& tokens);
  void handleNotesCommand(const Tokens& tokens);
  void handleCallsCommand(const Tokens& tokens);
  void handleFirestoreCommand(const Tokens& tokens);
  void handleHealthCommand(const Tokens& tokens);
  void unknownSubcommand(const std::string& word);
  /// Asks for a list at the backend under `path` and the user's id.
  void fetchList(const std::string& path, const char* key,
                 std::function<void(const Result<Json::Array>&)> show);
  void checkHealth(const std::string& name, const std::string& url, bool verbose,
                   const std::shared_ptr<int>& left);
  /// A callback on the main queue; until it has run the command counts as pending.
  template <class T>
  std::function<void(const T&)> later(std::function<void(const T&)> show);

  const TerminalServices services_;
  const std::shared_ptr<HttpSession> session_;
  const Date started_;
  std::vector<TerminalSpan> output_;
  std::string input_;
  std::vector<std::string> commandHistory_;
  int historyIndex_ = -1;
  int clearings_ = 0, pending_ = 0;
  bool hasFailed_ = false;
  ChildProcessRef process_;
  Lifetime lifetime_;
};

}  // namespace kestrin
