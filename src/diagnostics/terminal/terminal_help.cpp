#include "diagnostics/terminal/terminal_text.h"

namespace kestrin {

const std::vector<TerminalHelpSection>& terminalHelp() {
  static const std::vector<TerminalHelpSection> sections{
      {"LOGS & DIAGNOSTICS",
       {
           {"logs [filter] [flags]", "Show app logs"},
           {"Filters:", "agent, research, asr, tts, error, all"},
           {"-n, --limit <N>", "Show last N entries (default: 20)"},
           {"-v, --verbose", "Show full log details"},
           {"--tail", "Show only latest entries"},
           {"--json", "Output as JSON"},
           {"--filter <text>", "Filter by text content"},
       }},
      {"DATA & HISTORY",
       {
           {"history [flags]", "Show voice command history"},
           {"-n, --limit <N>", "Show last N entries (default: 10)"},
           {"-v, --verbose", "Show full input/output"},
           {"--all", "Show all history"},
           {"--filter <mode>", "Filter by mode (email, chat, etc.)"},
           {"research [cmd] [flags]", "Deep research sessions"},
           {"list", "List all sessions"},
           {"show <id>", "Show session details"},
           {"notes [cmd] [flags]", "Voice notes"},
           {"list", "List all notes"},
           {"show <id>", "Show note details"},
           {"-v, --verbose", "Show full content"},
           {"--filter <text>", "Filter by content"},
           {"calls [cmd] [flags]", "Call history"},
           {"list", "List all calls"},
           {"-n, --limit <N>", "Limit results"},
           {"-v, --verbose", "Show transcripts"},
       }},
      {"CONFIGURATION",
       {
           {"modes [flags]", "Show mode settings"},
           {"-v, --verbose", "Show custom prompts"},
           {"--all", "Show all settings"},
           {"personality [flags]", "Show personality profile"},
           {"-v, --verbose", "Show full archetype details"},
           {"--raw", "Show raw trait scores"},
           {"calendar [flags]", "Show calendar events"},
           {"-n, --limit <N>", "Number of events (default: 10)"},
           {"--all", "Show all upcoming events"},
           {"-v, --verbose", "Show full event details"},
           {"config [flags]", "Show app configuration"},
           {"--all", "Show all config values"},
           {"-v, --verbose", "Show env variables"},
           {"user [flags]", "Show current user info"},
           {"--all", "Show all preferences"},
           {"--json", "Output as JSON"},
       }},
      {"SERVICES",
       {
           {"firestore [cmd]", "Firestore operations"},
           {"status", "Check connection status"},
           {"sync", "Force sync with server"},
           {"stats", "Show collection stats"},
           {"docker [cmd] [flags]", "Docker services"},
           {"status", "Show container status"},
           {"logs", "Show container logs"},
           {"-n, --limit <N>", "Log lines (default: 20)"},
           {"-f, --follow", "Follow log output"},
           {"health [flags]", "Service health checks"},
           {"-v, --verbose", "Show response details"},
           {"--all", "Check all endpoints"},
       }},
      {"UTILITIES",
       {
           {"stats [flags]", "App statistics"},
           {"-v, --verbose", "Show detailed breakdown"},
           {"--all", "Show all metrics"},
           {"shell <cmd>", "Execute shell command"},
           {"clear", "Clear terminal"},
           {"help", "Show this help"},
       }},
  };
  return sections;
}

const std::vector<std::string>& terminalCommands() {
  static const std::vector<std::string> words{
      "logs",        "history",  "research", "notes", "calls",     "modes",
      "personality", "calendar", "config",   "user",  "firestore", "docker",
      "health",      "stats",    "shell",    "clear", "help"};
  return words;
}

}  // namespace kestrin
