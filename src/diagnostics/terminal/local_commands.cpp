// Commands that look at the application's own state.
#include <algorithm>

#include "diagnostics/logger.h"
#include "diagnostics/terminal/later.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr int usualLogEntries = 20;
constexpr int allEvents = 200;

std::vector<std::string> flagsShown(const ParsedFlags& flags,
                                    const char* verboseWord = "[verbose]") {
  return flags.verbose ? std::vector<std::string>{verboseWord} : std::vector<std::string>{};
}

TerminalColor colorOf(LogLevel level) {
  switch (level) {
    case LogLevel::debug:
      return TerminalColor::muted;
    case LogLevel::info:
      return TerminalColor::info;
    case LogLevel::warning:
      return TerminalColor::warning;
    case LogLevel::error:
      return TerminalColor::error;
  }
  return TerminalColor::normal;
}

/// Whether the entry passes the filter word of "logs".
bool passes(const LogEntry& entry, const std::string& word) {
  const std::string source = text::lower(entry.source), message = text::lower(entry.message);
  const auto holds = [&](std::string_view part) {
    return text::contains(source, part) || text::contains(message, part);
  };
  if (word == "all") return true;
  if (word == "error") return entry.level == LogLevel::error || text::contains(message, "error");
  if (word == "asr") return holds("asr") || holds("speech") || holds("transcri");
  return holds(word);
}

std::string timeOf(Date date) { return dates::format(date, "HH:mm:ss"); }

std::string orNone(const std::string& value, const char* none = "Not set") {
  return value.empty() ? none : value;
}

}  // namespace

void TerminalView::handleLogsCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const std::string word = flags.positionalArgs.empty() ? "all" : flags.positionalArgs.front();
  std::vector<std::string> shown;
  if (word != "all") shown.push_back("(filter: " + word + ")");
  if (flags.verbose) shown.push_back("[verbose]");
  Report report("APPLICATION LOGS", shown);
  const auto all = services_.log();
  if (all.empty()) {
    report.add("No logs found", TerminalColor::warning)
        .line(" - logs are captured during app usage", TerminalColor::muted)
        .line("  • App started: " + timeOf(started_))
        .line("💡 Tip: Use the app to generate logs, then run 'logs' again", TerminalColor::muted);
    return append(report);
  }
  std::vector<LogEntry> found;
  for (const LogEntry& entry : all) {
    const bool named = !flags.filter || text::contains(text::lower(entry.message + entry.source),
                                                       text::lower(*flags.filter));
    if (passes(entry, word) && named) found.push_back(entry);
  }
  const size_t limit = size_t(std::max(flags.limitOr(usualLogEntries), 0));
  const size_t total = found.size();
  if (found.size() > limit) found.erase(found.begin(), found.end() - ptrdiff_t(limit));
  if (flags.json) {
    std::vector<std::vector<std::pair<std::string, Json>>> objects;
    for (const LogEntry& entry : found) {
      objects.push_back({{"timestamp", timeOf(entry.timestamp)},
                         {"level", std::string(logLevelText(entry.level))},
                         {"source", entry.source},
                         {"message", entry.message}});
    }
    append(report);
    return appendText(terminalJson(objects) + "\n");
  }
  for (const LogEntry& entry : found) {
    const std::string level(logLevelText(entry.level));
    if (flags.verbose) {
      report.line("┌ " + timeOf(entry.timestamp), TerminalColor::muted)
          .add("│ Level: ", TerminalColor::muted)
          .line(level, colorOf(entry.level))
          .add("│ Source: ", TerminalColor::muted)
          .line(entry.source)
          .line("│ " + text::replaceAll(entry.message, "\n", "\n│ "))
          .line("└────────────────────────────────────────", TerminalColor::muted);
      continue;
    }
    report.add(timeOf(entry.timestamp) + " ", TerminalColor::muted)
        .add("[" + level + "] ",
             entry.level == LogLevel::error ? TerminalColor::warning : colorOf(entry.level))
        .add("[" + entry.source + "] ", TerminalColor::info)
        .line(entry.message);
  }
  report.footer("Showing " + std::to_string(found.size()) + " of " + std::to_string(total) +
                " log entries");
  append(report);
}

void TerminalView::handleModesCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  Report report("MODE SETTINGS", flagsShown(flags));
  const auto prompts = services_.preferences.customPrompts();
  const auto temperatures = services_.preferences.modeTemperatures();
  for (const auto& [mode, prompt] : prompts) {
    const auto temperature = temperatures.find(mode);
    const bool custom = services_.preferences.hasCustomPrompt(mode) ||
                        services_.preferences.hasCustomTemperature(mode);
    if (!flags.all && !flags.verbose && mode.find('_') != std::string::npos && !custom) {
      // The specialised ones are shown when they differ or are asked for.
      continue;
    }
    report.row(mode,
               (temperature == temperatures.end() ? std::string("-")
                                                  : text::fixed(temperature->second, 1)) +
                   (custom ? "  custom" : "  default"),
               custom ? TerminalColor::success : TerminalColor::normal);
    if (flags.verbose) report.line("    " + prompt, TerminalColor::muted);
  }
  report.footer("💡 Use '-v' for the prompts, '--all' for all modes");
  append(report);
}

void TerminalView::handlePersonalityCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  Report report("PERSONALITY PROFILE", flagsShown(flags));
  const std::string profile = services_.settings.string(UserPreferences::userPersonalityKey);
  if (profile.empty()) {
    report.footer("No personality profile found");
  } else {
    report.line(flags.verbose ? profile : text::prefix(profile, 300));
  }
  if (const auto archetype = services_.preferences.userArchetype()) {
    report.section("🎭 Archetype");
    report.row("Name:", archetype->stringAt("name", ""));
    report.row("Confidence:",
               text::fixed(100 * archetype->numberAt("confidence").value_or(0), 0) + " %");
    if (flags.verbose) {
      report.row("Traits:", text::join(archetype->stringsAt("traits"), ", "));
      report.row("Style:", archetype->stringAt("style_prompt", ""));
    }
    if (flags.raw) report.line(archetype->dumpPretty());
  }
  append(report);
}

void TerminalView::handleConfigCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const bool full = flags.all || flags.verbose;
  Report report("APP CONFIGURATION",
                full ? std::vector<std::string>{"[full]"} : std::vector<std::string>{});
  report.row("Version:", "1.0.0")
      .row("Build:", services_.version)
      .row("Backend:", services_.endpoints.backend)
      .row("Agent:", services_.endpoints.agent)
      .row("Agent Port:", "8765")
      .row("ASR Port:", "8001");
  if (full) {
    report.row("Max History:", "50")
        .row("Log Buffer:",
             std::to_string(services_.log().size()) + " of " + std::to_string(Logger::maxEntries))
        .row("Documents:", services_.documentsFolder);
  }
  report.section("🔐 Auth Status");
  const bool signedIn = services_.auth.currentUser().has_value();
  const bool google = services_.isGoogleConnected && services_.isGoogleConnected();
  report.row("Firebase:", signedIn ? "Authenticated ✓" : "Not authenticated",
             signedIn ? TerminalColor::success : TerminalColor::muted);
  report.row("Google:", google ? "Connected" : "Not connected",
             google ? TerminalColor::success : TerminalColor::muted);
  if (!full) report.footer("💡 Use '-a' or '-v' for full configuration");
  append(report);
}

void TerminalView::handleStatsCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const auto count = [this](const std::string& key) {
    return std::to_string(services_.settings.get(key).value_or(Json()).asInt().value_or(0));
  };
  Report report("APP STATISTICS", flagsShown(flags, "[detailed]"));
  report.section("📈 Usage Metrics");
  report.row("Voice Commands:", count("totalVoiceCommands"))
      .row("Notes Created:", count("totalNotes"))
      .row("Research:", count("totalResearchSessions"))
      .row("Calls:", count("totalCalls"))
      .row("Log Buffer:", std::to_string(services_.log().size()))
      .row("Command History:", std::to_string(commandHistory_.size()))
      .row("Started:", timeOf(started_));
  if (flags.verbose || flags.all) {
    report.section("🎛️ Modes");
    for (const auto& [mode, prompt] : services_.preferences.customPrompts()) {
      const auto used = count("modeUsage_" + mode);
      if (used != "0" || flags.all) report.row(mode + ":", used);
    }
  }
  append(report);
}

void TerminalView::handleUserCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const auto user = services_.auth.currentUser();
  const auto setting = [this](const char* key) { return services_.settings.string(key); };
  const bool tested = services_.settings.boolean(UserPreferences::personalityTestCompletedKey);
  const auto archetype = services_.preferences.userArchetype();
  // The first reading of the id waits for the disk.
  services_.dispatch.globalQueue()->post(
      [&id = services_.deviceId,
       show = later<std::string>([=, this](const std::string& deviceId) {
         std::vector<std::pair<std::string, Json>> fields{
             {"name", setting(UserPreferences::userNameKey)},
             {"deviceId", deviceId},
             {"location", services_.preferences.displayLocation()},
             {"timezone",
              orNone(setting(UserPreferences::userTimezoneKey), dates::systemTimeZone().c_str())},
             {"email", user ? user->email : ""},
             {"personalityTest", tested},
             {"archetype", archetype ? archetype->stringAt("name", "") : ""}};
         if (flags.json) {
           append(Report("USER INFO"));
           return appendText(terminalJson({fields}) + "\n");
         }
         Report report("USER INFO", flagsShown(flags));
         const auto text = [&](size_t i) { return fields[i].second.asString().value_or(""); };
         report.row("Name:", orNone(text(0)))
             .row("Device ID:", text(1))
             .row("Location:", text(2))
             .row("Timezone:", text(3));
         report.section("🔐 Authentication");
         report.row("Account:", orNone(text(4), "Not signed in"));
         report.row("Personality Test:", tested ? "Completed ✓" : "Not completed")
             .row("Archetype:", orNone(text(6), "None"))
             .row("About Me:",
                  orNone(text::prefix(setting(UserPreferences::userAboutMeTranscriptKey), 200)));
         if (flags.verbose || flags.all) {
           report.section("⚙️ Preferences");
           for (const auto& key : services_.settings.keys()) {
             // A script may have left the key in the settings.
             if (!key.starts_with("pref_") || key == "pref_geminiApiKey") continue;
             report.row(key, services_.settings.get(key).value_or(Json()).dump());
           }
         } else {
           report.footer("💡 Use '-v' for full preferences");
         }
         append(report);
       })] { show(id.deviceId()); });
}

void TerminalView::handleCalendarCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  if (!services_.calendar) {
    Report report("CALENDAR EVENTS", flagsShown(flags));
    report.footer("No events found: no calendar is connected");
    return append(report);
  }
  services_.calendar(
      flags.all ? allEvents : std::max(flags.limitOr(), 0),
      later<Result<std::vector<TerminalEvent>>>(
          [this, flags](const Result<std::vector<TerminalEvent>>& events) {
            Report report("CALENDAR EVENTS", flagsShown(flags));
            if (!events) return append(report.failure(events.error().description));
            if (events->empty()) report.footer("No events found");
            for (const TerminalEvent& event : *events) {
              report.add(dates::format(event.start, "EEE d MMM "), TerminalColor::muted)
                  .add(event.allDay ? "all day   " : timeOf(event.start) + "  ",
                       TerminalColor::info)
                  .line(event.title);
              if (!flags.verbose) continue;
              report.row("Until:", timeOf(event.end))
                  .row("Calendar:", event.calendar)
                  .row("Place:", event.location);
              if (!event.notes.empty()) report.line("    " + event.notes, TerminalColor::muted);
            }
            append(report);
          }));
}

void TerminalView::handleDockerCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const std::string what = flags.positionalArgs.empty() ? "status" : flags.positional(0);
  append(Report("DOCKER SERVICES"));
  if (what == "status") {
    return runShellCommand(
        "docker ps -a --filter name=^kestrin-unified$ --format "
        "'table {{.Names}}\t{{.Status}}\t{{.Ports}}'");
  }
  if (what == "logs") {
    return runShellCommand("docker logs --tail " + std::to_string(std::max(flags.limitOr(20), 0)) +
                           (flags.follow ? " -f" : "") + " kestrin-unified");
  }
  unknownSubcommand(what);
}

}  // namespace kestrin
