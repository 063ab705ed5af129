#include "diagnostics/terminal/terminal_view.h"

#include <algorithm>

#include "diagnostics/terminal/later.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr std::chrono::seconds requestTimeout{15};
constexpr size_t helpColumn = 26;

std::string padded(const std::string& text, size_t width) {
  const size_t length = text::characterCount(text);
  return text + std::string(length < width ? width - length : 1, ' ');
}

}  // namespace

TerminalView::TerminalView(TerminalServices services)
    : services_(std::move(services)),
      session_(services_.http.makeSession({.requestTimeout = requestTimeout})),
      started_(services_.dispatch.clock().wallNow()) {
  showWelcome();
}

TerminalView::~TerminalView() { stopProcess(); }

void TerminalView::appendText(const std::string& text, TerminalColor color) {
  if (text.empty()) return;
  output_.push_back({text, color});
  hasFailed_ = hasFailed_ || color == TerminalColor::error;
  if (output_.size() > mostSpans) {
    output_.erase(output_.begin(), output_.begin() + mostSpans / 4);
    ++clearings_;
  }
  changed();
}

void TerminalView::append(const Report& report) {
  for (const TerminalSpan& span : report.spans()) appendText(span.text, span.color);
}

void TerminalView::showWelcome() {
  const std::string lines[] = {header, "Access application logs, data, and Firestore",
                               "Type 'help' to see all available commands"};
  constexpr size_t width = 52;
  std::string bar;
  for (size_t i = 0; i < width; ++i) bar += "═";
  appendText("╔" + bar + "╗\n", TerminalColor::heading);
  for (const auto& line : lines) {
    // The picture takes two places.
    const size_t room = width - 1 - (line == header ? 1 : 0);
    appendText("║ " + padded(line, room) + "║\n", TerminalColor::heading);
  }
  appendText("╚" + bar + "╝\n\n", TerminalColor::heading);
}

void TerminalView::clearTerminal() {
  output_.clear();
  hasFailed_ = false;
  ++clearings_;
  showWelcome();
}

void TerminalView::navigateHistory(int direction) {
  if (commandHistory_.empty()) return;
  const int last = int(commandHistory_.size()) - 1;
  if (direction > 0) {
    if (historyIndex_ >= last) return;
    ++historyIndex_;
  } else {
    if (historyIndex_ < 0) return;
    --historyIndex_;
  }
  input_ = historyIndex_ < 0 ? "" : commandHistory_[size_t(last - historyIndex_)];
  changed();
}

void TerminalView::executeCommand() {
  const std::string line = text::trim(input_);
  if (line.empty()) return;
  if (commandHistory_.empty() || commandHistory_.back() != line) commandHistory_.push_back(line);
  historyIndex_ = -1;
  input_.clear();
  appendText(std::string(prompt) + " ", TerminalColor::prompt);
  appendText(line + "\n", TerminalColor::command);
  processCommand(line);
}

void TerminalView::processCommand(const std::string& line) {
  Tokens tokens;
  for (auto& piece : text::split(text::lower(line), " ")) {
    if (auto word = text::trim(piece); !word.empty()) tokens.push_back(std::move(word));
  }
  if (tokens.empty()) return;
  const std::string word = tokens.front();
  tokens.erase(tokens.begin());
  if (!dispatch(word, tokens)) {
    appendText("Unknown command: ", TerminalColor::error);
    appendText(word + "\n");
    appendText("Type 'help' for available commands\n", TerminalColor::muted);
  }
  appendText("\n");
}

bool TerminalView::dispatch(const std::string& word, const Tokens& tokens) {
  using Handler = void (TerminalView::*)(const Tokens&);
  static const std::vector<std::pair<std::string, Handler>> handlers{
      {"logs", &TerminalView::handleLogsCommand},
      {"history", &TerminalView::handleHistoryCommand},
      {"research", &TerminalView::handleResearchCommand},
      {"notes", &TerminalView::handleNotesCommand},
      {"modes", &TerminalView::handleModesCommand},
      {"personality", &TerminalView::handlePersonalityCommand},
      {"calendar", &TerminalView::handleCalendarCommand},
      {"calls", &TerminalView::handleCallsCommand},
      {"firestore", &TerminalView::handleFirestoreCommand},
      {"docker", &TerminalView::handleDockerCommand},
      {"config", &TerminalView::handleConfigCommand},
      {"stats", &TerminalView::handleStatsCommand},
      {"user", &TerminalView::handleUserCommand},
      {"health", &TerminalView::handleHealthCommand}};
  for (const auto& [name, handler] : handlers) {
    if (name != word) continue;
    (this->*handler)(tokens);
    return true;
  }
  if (word == "help") {
    showHelp();
  } else if (word == "clear") {
    clearTerminal();
  } else if (word == "shell") {
    if (tokens.empty()) {
      appendText("Usage: shell <command>\n", TerminalColor::error);
    } else {
      runShellCommand(text::join(tokens, " "));
    }
  } else {
    return false;
  }
  return true;
}

void TerminalView::showHelp() {
  append(Report("AVAILABLE COMMANDS"));
  for (const auto& section : terminalHelp()) {
    appendText("\n" + std::string(section.title) + "\n", TerminalColor::info);
    for (const auto& [command, description] : section.entries) {
      const auto& words = terminalCommands();
      const auto first = text::split(command, " ").front();
      const bool sub = std::find(words.begin(), words.end(), first) == words.end() ||
                       (first == "logs" && std::string(command) == "logs");
      appendText(padded(std::string(sub ? "    " : "  ") + command, helpColumn),
                 TerminalColor::command);
      appendText(std::string(description) + "\n", TerminalColor::muted);
    }
  }
}

void TerminalView::runShellCommand(const std::string& command) {
  startProcess("/bin/sh", {"-c", command});
}

void TerminalView::startProcess(const std::string& program, const Tokens& arguments) {
  if (process_) {
    return appendText("Another command is still running; stop it first\n", TerminalColor::error);
  }
  const std::function<void(std::string, bool)> line = lifetime_.guard(
      [this](const std::string& text, bool) { appendText(text::replaceInvalidUtf8(text) + "\n"); });
  const std::function<void(int)> ended = lifetime_.guard([this](int) {
    process_.reset();
    --pending_;
    appendText("\n");
  });
  const auto started = services_.processes.start({.program = program, .arguments = arguments},
                                                 services_.dispatch.mainQueue(), line, ended);
  if (!started)
    return appendText("Error: " + started.error().description + "\n", TerminalColor::error);
  process_ = *started;
  process_->closeInput();
  ++pending_;
}

bool TerminalView::stopProcess() {
  if (!process_) return false;
  process_->terminate();
  return true;
}

}  // namespace kestrin
