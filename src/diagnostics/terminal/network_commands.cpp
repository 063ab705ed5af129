// Commands that ask the services.
#include <algorithm>

#include "diagnostics/terminal/later.h"
#include "platform/text/text.h"

namespace kestrin {
namespace {

constexpr size_t previewLength = 60;

std::vector<std::string> flagsShown(const ParsedFlags& flags) {
  return flags.verbose ? std::vector<std::string>{"[verbose]"} : std::vector<std::string>{};
}

std::string preview(const std::string& text) {
  const std::string line = text::replaceAll(text, "\n", " ");
  return text::characterCount(line) > previewLength ? text::prefix(line, previewLength) + "…"
                                                    : line;
}

/// The first `limit` of what the filter leaves.
std::vector<Json> chosen(const Json::Array& list, const ParsedFlags& flags, const char* filtered,
                         const char* alsoFiltered = "") {
  std::vector<Json> out;
  const size_t limit = flags.all ? list.size() : size_t(std::max(flags.limitOr(), 0));
  for (const Json& record : list) {
    const std::string searched =
        text::lower(record.stringAt(filtered, "") + " " + record.stringAt(alsoFiltered, ""));
    if (flags.filter && !text::contains(searched, *flags.filter)) continue;
    if (out.size() < limit) out.push_back(record);
  }
  return out;
}

std::string asJson(const std::vector<Json>& records) {
  std::vector<std::vector<std::pair<std::string, Json>>> objects;
  for (const Json& record : records)
    objects.emplace_back(record.members().begin(), record.members().end());
  return terminalJson(objects) + "\n";
}

/// The record whose id begins with `id`, in any case: the line was turned to lower case.
const Json* withId(const Json::Array& list, const std::string& id) {
  const auto found = std::find_if(list.begin(), list.end(), [&](const Json& record) {
    return !id.empty() && text::lower(record.stringAt("id", "")).starts_with(id);
  });
  return found == list.end() ? nullptr : &*found;
}

std::string formatDuration(int64_t seconds) {
  const std::string rest = std::to_string(seconds % 60);
  return std::to_string(seconds / 60) + ":" + (rest.size() < 2 ? "0" : "") + rest;
}

}  // namespace

void TerminalView::unknownSubcommand(const std::string& word) {
  appendText("Unknown subcommand: " + word + "\n", TerminalColor::error);
}

void TerminalView::fetchList(const std::string& path, const char* key,
                             std::function<void(const Result<Json::Array>&)> show) {
  services_.dispatch.globalQueue()->post([&id = services_.deviceId, session = session_, key,
                                          base = services_.endpoints.backend + path,
                                          done = later<Result<Json::Array>>(std::move(show))] {
    const std::string device = id.deviceId();
    HttpRequest request;
    request.url = base + urlEncode(device);
    request.setHeader("X-Device-Id", device);
    session->data(std::move(request), [done, key](const Result<HttpResponse>& response) {
      if (!response) return done(fail(response.error()));
      const auto answer = Json::parse(response->body);
      const auto list = answer ? answer->objectListAt(key) : std::nullopt;
      if (list) return done(*list);
      const std::string why = answer ? answer->stringAt("error", "") : "";
      done(fail("Terminal", 1,
                why.empty() ? "The backend answered with status " +
                                  std::to_string(response->status) + " and no list"
                            : why));
    });
  });
}

void TerminalView::handleHistoryCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  fetchList("/history/", "history", [this, flags](const Result<Json::Array>& list) {
    Report report("VOICE COMMAND HISTORY", flagsShown(flags));
    if (!list) return append(report.failure(list.error().description));
    const auto found = chosen(*list, flags, "mode");
    if (found.empty()) return append(report.footer("No history found"));
    if (flags.json) {
      append(report);
      return appendText(asJson(found));
    }
    for (const Json& record : found) {
      report.add(terminalTime(record.stringAt("timestamp", "")) + "  ", TerminalColor::muted)
          .add(record.stringAt("mode", "") + "  ", TerminalColor::info)
          .line(preview(record.stringAt("transcript", "")));
      if (!flags.verbose) continue;
      report.row("Input:", record.stringAt("transcript", ""))
          .row("Output:", record.stringAt("processedText", ""))
          .row("App:", record.stringAt("appName", ""));
    }
    report.footer("Showing " + std::to_string(found.size()) + " of " +
                  std::to_string(list->size()) + " entries");
    append(report);
  });
}

void TerminalView::handleResearchCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const std::string what = flags.positionalArgs.empty() ? "list" : flags.positional(0);
  if (what != "list" && what != "show" && what != "stats") return unknownSubcommand(what);
  fetchList("/research/history/", "sessions", [=, this](const Result<Json::Array>& list) {
    Report report("RESEARCH SESSIONS", flagsShown(flags));
    if (!list) return append(report.failure(list.error().description));
    if (what == "stats") {
      size_t sources = 0;
      for (const Json& session : *list) sources += session.objectsAt("sources").size();
      return append(report.row("Sessions:", std::to_string(list->size()))
                        .row("Sources:", std::to_string(sources)));
    }
    if (what == "show") {
      const Json* session = withId(*list, flags.positional(1));
      if (!session) return append(report.failure("No research found with that id"));
      report.row("Question:", session->stringAt("query", ""))
          .row("Created:", session->stringAt("createdAt", ""))
          .line()
          .line(session->stringAt("summary", ""));
      for (const Json* source : session->objectsAt("sources"))
        report.line("  • " + source->stringAt("title", "") + "  " + source->stringAt("url", ""),
                    TerminalColor::muted);
      return append(report);
    }
    const auto found = chosen(*list, flags, "query", "summary");
    if (found.empty()) return append(report.footer("No research sessions found"));
    if (flags.json) {
      append(report);
      return appendText(asJson(found));
    }
    for (const Json& session : found) {
      report.add(text::prefix(session.stringAt("id", ""), 8) + "  ", TerminalColor::muted)
          .line(preview(session.stringAt("query", "")));
      if (flags.verbose) report.line("    " + preview(session.stringAt("summary", "")));
    }
    append(report.footer("Showing " + std::to_string(found.size()) + " of " +
                         std::to_string(list->size()) + " sessions"));
  });
}

void TerminalView::handleNotesCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const std::string what = flags.positionalArgs.empty() ? "list" : flags.positional(0);
  if (what != "list" && what != "show") return unknownSubcommand(what);
  fetchList("/notes/", "notes", [=, this](const Result<Json::Array>& list) {
    Report report("VOICE NOTES", flagsShown(flags));
    if (!list) return append(report.failure(list.error().description));
    if (what == "show") {
      const Json* note = withId(*list, flags.positional(1));
      if (!note) return append(report.failure("No note found with that id"));
      report.row("ID:", note->stringAt("id", ""))
          .row("Created:", note->stringAt("createdAt", ""))
          .line()
          .line(note->stringAt("content", ""));
      if (const auto said = note->stringAt("transcript"))
        report.section("🎙️ Transcript").line(*said, TerminalColor::muted);
      return append(report);
    }
    const auto found = chosen(*list, flags, "content");
    if (found.empty()) return append(report.footer("No notes found"));
    if (flags.json) {
      append(report);
      return appendText(asJson(found));
    }
    for (const Json& note : found) {
      report.add(text::prefix(note.stringAt("id", ""), 8) + "  ", TerminalColor::muted)
          .line(preview(note.stringAt("content", "")));
      if (flags.verbose) report.line(note.stringAt("content", ""));
    }
    append(report.footer("Showing " + std::to_string(found.size()) + " of " +
                         std::to_string(list->size()) + " notes"));
  });
}

void TerminalView::handleCallsCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const std::string what = flags.positionalArgs.empty() ? "list" : flags.positional(0);
  if (what != "list") return unknownSubcommand(what);
  fetchList("/calls/history/", "calls", [this, flags](const Result<Json::Array>& list) {
    Report report("CALL HISTORY", flagsShown(flags));
    if (!list) return append(report.failure(list.error().description));
    const auto found = chosen(*list, flags, "callerName", "calleeName");
    if (found.empty()) return append(report.footer("No calls found"));
    if (flags.json) {
      append(report);
      return appendText(asJson(found));
    }
    for (const Json& call : found) {
      report
          .add(terminalTime(call.stringAt("startedAt", call.stringAt("createdAt", ""))) + "  ",
               TerminalColor::muted)
          .add(call.stringAt("status", "") + "  ", TerminalColor::info)
          .add(call.stringAt("callerName", call.stringAt("callerId", "")) + " → " +
               call.stringAt("calleeName", call.stringAt("calleeId", "")) + "  ")
          .line(formatDuration(call.intAt("duration").value_or(0)));
      if (flags.verbose) report.line("    " + call.stringAt("transcript", "no transcript"));
    }
    append(report);
  });
}

void TerminalView::handleFirestoreCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  const std::string what = flags.positionalArgs.empty() ? "status" : flags.positional(0);
  if (what == "status") {
    append(Report("FIRESTORE STATUS"));
    return checkHealth("Backend", services_.endpoints.backend + "/health", flags.verbose, nullptr);
  }
  if (what == "sync") {
    return fetchList("/history/", "history", [this](const Result<Json::Array>& list) {
      Report report("FIRESTORE SYNC");
      append(list ? report.line("Synced " + std::to_string(list->size()) + " history records",
                                TerminalColor::success)
                  : report.failure(list.error().description));
    });
  }
  if (what != "stats") return unknownSubcommand(what);
  append(Report("FIRESTORE COLLECTIONS"));
  struct Collection {
    const char *title, *path, *key;
  };
  for (const auto& [title, path, key] : {Collection{"History:", "/history/", "history"},
                                         Collection{"Research:", "/research/history/", "sessions"},
                                         Collection{"Notes:", "/notes/", "notes"},
                                         Collection{"Calls:", "/calls/history/", "calls"}}) {
    fetchList(path, key, [this, title = std::string(title)](const Result<Json::Array>& list) {
      Report report;
      append(list ? report.row(title, std::to_string(list->size()))
                  : report.row(title, list.error().description, TerminalColor::error));
    });
  }
}

void TerminalView::checkHealth(const std::string& name, const std::string& url, bool verbose,
                               const std::shared_ptr<int>& left) {
  if (!isHttpUrl(url)) {
    appendText(name + ": Invalid URL\n", TerminalColor::error);
    if (left) --*left;
    return;
  }
  HttpRequest request;
  request.url = url;
  const SteadyTime began = services_.dispatch.clock().steadyNow();
  session_->data(
      std::move(request),
      later<Result<HttpResponse>>([=, this](const Result<HttpResponse>& answer) {
        using std::chrono::duration_cast, std::chrono::milliseconds;
        const auto took =
            duration_cast<milliseconds>(services_.dispatch.clock().steadyNow() - began);
        const bool healthy = answer && answer->status / 100 == 2;
        Report report;
        report.add(name + ": ")
            .add(healthy ? "Healthy" : "Failed",
                 healthy ? TerminalColor::success : TerminalColor::error);
        report.line(" (" + std::to_string(took.count()) + " ms)", TerminalColor::muted);
        if (!healthy) {
          report.failure("  Error: " + (answer ? "status " + std::to_string(answer->status)
                                               : answer.error().description));
        }
        if (verbose) {
          report.line("  URL: " + url, TerminalColor::muted);
          if (answer)
            report.line("  Response: " + text::prefix(answer->body, 500), TerminalColor::muted);
        }
        append(report);
        if (left && --*left == 0) append(Report().footer("Health check complete."));
      }));
}

void TerminalView::handleHealthCommand(const Tokens& tokens) {
  const ParsedFlags flags = parseFlags(tokens);
  Report report("HEALTH CHECK", flagsShown(flags));
  append(report.line("Checking services...", TerminalColor::muted));
  const Endpoints& at = services_.endpoints;
  std::vector<std::pair<std::string, std::string>> checked{{"Backend", at.backend + "/health"},
                                                           {"Agent", at.agent + "/health"},
                                                           {"ASR", at.asr + "/health"}};
  if (flags.all) {
    checked.push_back({"LLM", at.llm + "/health"});
    checked.push_back({"Backend version", at.backend + "/app/version"});
  }
  const auto left = std::make_shared<int>(int(checked.size()));
  for (const auto& [name, url] : checked) checkHealth(name, url, flags.verbose, left);
}

}  // namespace kestrin
