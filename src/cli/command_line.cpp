#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/commands.h"
#include "cli/completion.h"
#include "cli/man_page.h"
#include "platform/text/text.h"

namespace kestrin::cli {
namespace {

constexpr const char* version = KESTRIN_VERSION;

/// What the command line chose to run.
using Chosen = std::function<int()>;

void addDictate(CLI::App& app, Chosen& chosen) {
  auto options = std::make_shared<DictateOptions>();
  auto* command = app.add_subcommand(
      "dictate", "One dictation from a recording; the text is printed as it comes");
  command->add_option("--wav", options->wav, "The recording, a WAV file; - reads standard input")
      ->required()
      ->type_name("FILE");
  command->add_option("--app", options->app, "Name of the application that the text is meant for")
      ->type_name("NAME");
  command->add_option("--title", options->title, "Title of its window")->type_name("TEXT");
  command->add_option("--mode", options->mode, "Mode of the dictation; auto lets the agent decide")
      ->capture_default_str()
      ->type_name("MODE");
  command->add_flag("--json", options->json,
                    "One JSON object a line: status, chunk, notification, "
                    "result and error events");
  command->callback([&chosen, options] { chosen = [options] { return dictate(*options); }; });
}

void addControl(CLI::App& app, Chosen& chosen) {
  const std::pair<const char*, const char*> commands[] = {
      {"press", "Presses the hold key of the running application"},
      {"release", "Releases it: the recording is sent"},
      {"toggle", "Presses it, or releases it when it is pressed"},
      {"cancel", "Drops the recording; without one, stops every running request"},
      {"show", "Shows the running application"},
      {"quit", "Ends the running application"},
      {"retry", "Sends the last undelivered recording or text again"},
      {"elevate",
       "Lets actions press keys and run scripts (each is shown first) until the running "
       "application "
       "ends; refused when pref_actionTier is safe"},
      {"lower", "Takes that back"}};
  for (const auto& [name, description] : commands) {
    app.add_subcommand(name, description)->callback([&chosen, name = std::string(name)] {
      chosen = [name] { return control(name); };
    });
  }
}

void addStatus(CLI::App& app, Chosen& chosen) {
  auto json = std::make_shared<bool>(false);
  auto* command = app.add_subcommand("status", "What the running application is doing");
  command->add_flag("--json", *json, "One JSON object");
  command->callback([&chosen, json] { chosen = [json] { return status(*json); }; });
}

void addSettings(CLI::App& app, Chosen& chosen) {
  auto key = std::make_shared<std::string>();
  auto value = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  auto* settings = app.add_subcommand("settings", "Reads and changes the settings");
  settings->require_subcommand(1);

  auto* get = settings->add_subcommand(
      "get", "Prints a setting or its default; status 1 when it has neither");
  get->add_option("KEY", *key, "Name of the setting")->required();
  get->callback([&chosen, key] { chosen = [key] { return settingsGet(*key); }; });

  auto* set = settings->add_subcommand(
      "set",
      "Changes a setting, in the running application too.\nA preference (pref_...) must be a "
      "known one and its value of the right kind and range, or nothing is changed (status 1); "
      "so must the kind of the application's other settings. Any other name may hold anything.");
  set->add_option("KEY", *key, "Name of the setting")->required();
  set->add_option("VALUE", *value,
                  "true or false, a number, one of the setting's choices, a text; JSON for records")
      ->required();
  set->callback(
      [&chosen, key, value] { chosen = [key, value] { return settingsSet(*key, *value); }; });

  auto* list = settings->add_subcommand("list", "Prints every setting that is set");
  auto everything = std::make_shared<bool>(false);
  list->add_flag("--all", *everything, "Those that are not set as well, with their defaults");
  list->add_flag("--json", *json, "One JSON object");
  list->callback([&chosen, everything, json] {
    chosen = [everything, json] { return settingsList(*everything, *json); };
  });

  auto* reset =
      settings->add_subcommand("reset", "Puts a setting back to its default, or all preferences");
  auto* resetKey = reset->add_option("KEY", *key, "Name of the setting");
  reset->callback([&chosen, key, resetKey] {
    const bool one = resetKey->count() > 0;
    chosen = [key, one] { return settingsReset(one ? std::optional(*key) : std::nullopt); };
  });
}

void addHistory(CLI::App& app, Chosen& chosen) {
  auto options = std::make_shared<HistoryOptions>();
  auto* command = app.add_subcommand(
      "history",
      "What was dictated, newest first; without the backend, what this machine kept of it");
  command->add_option("--limit", options->limit, "How many entries at most")
      ->capture_default_str()
      ->check(CLI::Range(1, 1000))
      ->type_name("N");
  command->add_flag("--json", options->json, "One JSON object a line");
  command->callback([&chosen, options] { chosen = [options] { return history(*options); }; });
}

void addResearch(CLI::App& app, Chosen& chosen) {
  auto words = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  auto* command = app.add_subcommand(
      "research",
      "Searches, reads and sums up; the steps go to standard error, then the answer and "
      "its sources are printed");
  command->add_option("QUESTION", *words, "What to find out")->required();
  command->add_flag("--json", *json, "One JSON object a line: step, result and error events");
  command->callback([&chosen, words, json] {
    chosen = [words, json] { return research({text::join(*words, " "), *json}); };
  });
}

void addNote(CLI::App& app, Chosen& chosen) {
  auto options = std::make_shared<NoteOptions>();
  auto* command =
      app.add_subcommand("note", "A voice note from a recording, printed as it is stored");
  command->add_option("--wav", options->wav, "The recording, a WAV file; - reads standard input")
      ->required()
      ->type_name("FILE");
  command->add_flag("--json", options->json, "One JSON object a line: a note or an error event");
  command->callback([&chosen, options] { chosen = [options] { return note(*options); }; });
}

void addCall(CLI::App& app, Chosen& chosen) {
  auto* command = app.add_subcommand(
      "call", "Calls: whom to call (a device's id or a name), answer, hangup, list or online");
  const auto options = std::make_shared<CallOptions>();
  command->add_option("what", options->what, "Whom to call, or answer, hangup, list, online")
      ->required();
  command->add_flag("--json", options->json, "One JSON object a line, for list and online");
  command->callback([&chosen, options] { chosen = [options] { return call(*options); }; });
}

void addLive(CLI::App& app, Chosen& chosen) {
  auto options = std::make_shared<LiveOptions>();
  auto* command = app.add_subcommand(
      "live",
      "A Live Assist session: its lines and its feedback as they come. From two recordings, or "
      "without them from the microphone and what the computer plays, until Ctrl-C");
  auto* microphone = command->add_option("--mic", options->microphone, "What you said, a WAV file")
                         ->type_name("FILE");
  auto* system =
      command->add_option("--system", options->system, "What the others said, a WAV file")
          ->type_name("FILE");
  microphone->needs(system);
  system->needs(microphone);
  command
      ->add_option("--use-case", options->useCase,
                   "What the conversation is about; the one used last unless given")
      ->check(CLI::IsMember({"meeting", "sales_call"}))
      ->type_name("CASE");
  command
      ->add_flag("--fast", options->fast,
                 "Recordings as fast as the recogniser answers, instead of in real time")
      ->needs(microphone);
  command
      ->add_option("--seconds", options->seconds, "How long to listen; until Ctrl-C unless given")
      ->check(CLI::Range(1, 24 * 3600))
      ->excludes(microphone);
  command->add_flag("--json", options->json,
                    "One JSON object a line: line, feedback and error events");
  command->callback([&chosen, options] { chosen = [options] { return live(*options); }; });
}

void addHome(CLI::App& app, Chosen& chosen) {
  auto speak = std::make_shared<bool>(false);
  auto* briefing = app.add_subcommand("briefing", "The day in words: weather, appointments, news");
  briefing->add_flag("--speak", *speak, "Reads it aloud too");
  briefing->callback([&chosen, speak] { chosen = [speak] { return cli::briefing(*speak); }; });

  auto options = std::make_shared<AgendaOptions>();
  auto* agenda = app.add_subcommand("agenda", "The appointments of today, or of the next days");
  agenda->add_option("--days", options->days, "How many days, today included")
      ->capture_default_str()
      ->check(CLI::Range(1, 366))
      ->type_name("N");
  agenda->add_flag("--json", options->json, "One JSON object a line");
  agenda->callback([&chosen, options] { chosen = [options] { return cli::agenda(*options); }; });
}

void addTerminal(CLI::App& app, Chosen& chosen) {
  auto line = std::make_shared<std::string>();
  auto* command = app.add_subcommand(
      "terminal",
      "The diagnostic terminal: the running application's log, history, services; "
      "\"help\" lists its commands");
  auto* option = command->add_option("-c,--command", *line, "Runs one line and prints its output")
                     ->type_name("LINE");
  command->callback([&chosen, line, option] {
    TerminalOptions options;
    if (option->count() > 0) options.line = *line;
    chosen = [options] { return terminal(options); };
  });
}

void addSpeak(CLI::App& app, Chosen& chosen) {
  auto words = std::make_shared<std::vector<std::string>>();
  auto* command = app.add_subcommand(
      "speak", "Says a text aloud, at the volume of spoken replies, and waits for its end");
  command->add_option("TEXT", *words, "What to say; - reads standard input")->required();
  command->callback(
      [&chosen, words] { chosen = [words] { return speak(text::join(*words, " ")); }; });
}

void addDoctor(CLI::App& app, Chosen& chosen) {
  auto json = std::make_shared<bool>(false);
  auto* command = app.add_subcommand(
      "doctor", "Checks everything that dictation needs, one line each with the mend");
  command->add_flag("--json", *json, "One JSON object a line");
  command->callback([&chosen, json] { chosen = [json] { return doctor(*json); }; });
}

void addServices(CLI::App& app, Chosen& chosen) {
  auto json = std::make_shared<bool>(false);
  auto* services = app.add_subcommand("services", "The local services: companion or container");
  services->require_subcommand(1);
  services
      ->add_subcommand(
          "up", "Starts what the setting pref_serviceHost chooses, and waits until it answers")
      ->callback([&chosen] { chosen = servicesUp; });
  services->add_subcommand("down", "Ends exactly what \"up\" has started")->callback([&chosen] {
    chosen = servicesDown;
  });
  auto* status = services->add_subcommand("status", "Asks each of the four services");
  status->add_flag("--json", *json, "One JSON object");
  status->callback([&chosen, json] { chosen = [json] { return servicesStatus(*json); }; });

  auto file = std::make_shared<std::string>();
  auto yes = std::make_shared<bool>(false);
  const auto withFile = [&](const char* name, const char* what, int (*run)(const std::string&)) {
    auto* command = services->add_subcommand(name, what);
    command->add_option("FILE", *file, "The copy")->required();
    command->callback([&chosen, file, run] { chosen = [file, run] { return run(*file); }; });
  };
  withFile("export", "Writes a copy of the companion's data: history, notes, sessions, research",
           servicesExport);
  withFile("import", "Puts such a copy in the place of the companion's data", servicesImport);
  auto* erase = services->add_subcommand("erase", "Removes the companion's data, after a question");
  erase->add_flag("--yes", *yes, "Without the question");
  erase->callback([&chosen, yes] { chosen = [yes] { return servicesErase(*yes); }; });
}

void addSetup(CLI::App& app, Chosen& chosen) {
  auto yes = std::make_shared<bool>(false);
  auto* command = app.add_subcommand(
      "setup", "First-run setup: what is missing and how to mend it, your name, a language model");
  command->add_flag("--yes", *yes, "Asks nothing and accepts everything as it stands");
  command->callback([&chosen, yes] { chosen = [yes] { return setup(*yes); }; });
}

void describe(CLI::App& app, Chosen& chosen) {
  app.description(
      "Kestrin, a personal voice assistant: hold a key, speak, and the text arrives where you "
      "write.\nWithout a subcommand the desktop application is started, or shown when it runs.");
  app.set_version_flag("--version", std::string("kestrin ") + version, "Prints the version");
  app.set_help_flag("--help,-h", "Prints this help");
  app.require_subcommand(0, 1);
  app.footer(
      "Exit status: 0 done, 1 failed (the reason is on standard error), 2 wrong usage.\n"
      "Environment: KESTRIN_ASR_URL, KESTRIN_LLM_URL, KESTRIN_AGENT_URL and KESTRIN_BACKEND_URL "
      "are the base addresses of the services; KESTRIN_AUTH_URL and KESTRIN_AUTH_KEY are for the "
      "e-mail account, KESTRIN_GOOGLE_CLIENT_ID and KESTRIN_GOOGLE_AUTH_URL for the link to a "
      "Google account.");
  addDictate(app, chosen);
  addControl(app, chosen);
  addStatus(app, chosen);
  addHistory(app, chosen);
  addSettings(app, chosen);
  addResearch(app, chosen);
  addNote(app, chosen);
  addCall(app, chosen);
  addLive(app, chosen);
  addHome(app, chosen);
  addTerminal(app, chosen);
  addSpeak(app, chosen);
  addSetup(app, chosen);
  addDoctor(app, chosen);
  addServices(app, chosen);
}

}  // namespace

int run(int argc, char** argv) {
  Chosen chosen = desktop;
  CLI::App app("", "kestrin");
  describe(app, chosen);
  bool manPage = false, completion = false;
  app.add_flag("--help-man", manPage, "Prints the manual page")->group("");
  app.add_flag("--help-completion", completion, "Prints the completion for bash")->group("");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& outcome) {
    return app.exit(outcome) == 0 ? done : wrongUsage;
  }
  if (manPage) {
    std::cout << manPageOf(app, version);
    return done;
  }
  if (completion) {
    std::cout << bashCompletionOf(app);
    return done;
  }
  return chosen();
}

}  // namespace kestrin::cli
