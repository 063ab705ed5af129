#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kestrin::cli {

/// Exit statuses of every subcommand.
enum ExitStatus { done = 0, failed = 1, wrongUsage = 2 };

struct DictateOptions {
  std::string wav;  ///< a path, or "-" for standard input
  std::string app;
  std::string title;
  std::string mode = "auto";
  bool json = false;
};
int dictate(const DictateOptions& options);

/// "press", "release", "toggle", "cancel", "show", "quit", "retry", "elevate" or "lower", to the
/// running application.
int control(const std::string& command);
int status(bool json);

int settingsGet(const std::string& key);
int settingsSet(const std::string& key, const std::string& value);
/// `everything`: those that are not set as well, with their defaults.
int settingsList(bool everything, bool json);
/// Without a key: all preferences; what is known of the user stays.
int settingsReset(const std::optional<std::string>& key);

/// Says the text aloud and waits for its end.
int speak(const std::string& text);

int doctor(bool json);

struct HistoryOptions {
  int limit = 50;
  bool json = false;
};
int history(const HistoryOptions& options);

struct ResearchOptions {
  std::string question;
  bool json = false;
};
/// Steps on standard error as they come, then the answer and its sources.
int research(const ResearchOptions& options);

/// The day in words; `speak`: aloud too.
int briefing(bool speak);

struct AgendaOptions {
  int days = 1;
  bool json = false;
};
/// The appointments of the next days.
int agenda(const AgendaOptions& options);

struct TerminalOptions {
  std::optional<std::string> line;  ///< one command; without it they are read from standard input
};
/// The diagnostic terminal.
int terminal(const TerminalOptions& options);

struct NoteOptions {
  std::string wav;  ///< a path, or "-" for standard input
  bool json = false;
};
/// A voice note from a recording, printed as it is stored.
int note(const NoteOptions& options);

struct CallOptions {
  std::string what;  ///< "answer", "hangup", "list", "online", or whom to call
  bool json = false;
};
/// Tells the running application to call, answer or hang up; or prints the calls that were, or who
/// is online.
int call(const CallOptions& options);

struct LiveOptions {
  std::string microphone;  ///< path of the user's side; both empty: what is heard now
  std::string system;      ///< path of the other side
  std::string useCase;     ///< empty: the one used last
  bool fast = false;       ///< the recordings run as fast as they are understood
  int seconds = 0;         ///< of what is heard now; 0: until Ctrl-C
  bool json = false;
};
/// A Live Assist session: its lines and its feedback as they come.
int live(const LiveOptions& options);

/// The companion's data: a copy to `file`, such a copy back, or all of it removed (after a
/// question, unless `yes`).
int servicesExport(const std::string& file);
int servicesImport(const std::string& file);
int servicesErase(bool yes);

/// Starts the services that the setting `pref_serviceHost` chooses and waits until they answer.
int servicesUp();
/// Ends exactly what `servicesUp` started.
int servicesDown();
int servicesStatus(bool json);

/// First-run setup: the checklist, then name and language model. `acceptAsItStands` asks nothing.
int setup(bool acceptAsItStands);

/// Shows the running desktop application, or starts it in this process's place.
int desktop();

/// Parses the command line and runs what it says.
int run(int argc, char** argv);

}  // namespace kestrin::cli
