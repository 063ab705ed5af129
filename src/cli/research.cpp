#include <iostream>
#include <memory>

#include "app/core_services.h"
#include "cli/commands.h"
#include "cli/printable.h"
#include "platform/linux/linux_platform.h"
#include "platform/text/markdown.h"
#include "platform/text/text.h"
#include "research/research_run.h"

namespace kestrin::cli {
namespace {

/// The answer is there already; the history's copy of it is worth a moment.
constexpr std::chrono::seconds saveTimeout{2};

void printLine(const Json& event) { std::cout << event.dump() << std::endl; }

void tell(const std::string& line) { std::cerr << printable(line) << std::endl; }

/// One question on the main loop. Main queue only.
class Question {
 public:
  Question(LinuxPlatform& backends, CoreServices& core, const ResearchOptions& options)
      : backends_(backends), core_(core), options_(options) {}

  void ask() {
    if (!core_.research.isConfigured()) return failed("Configuration error");
    run_ = std::make_unique<ResearchRun>(
        core_.platform.dispatch, core_.research, options_.question, "",
        ResearchRun::Callbacks{
            [this](const Json& event) { heard(event); },
            [this](const std::string& summary, const std::vector<ResearchSource>& sources) {
              answered(summary, sources);
            },
            [this](const std::string& text) { failed(text); }});
  }

 private:
  void heard(const Json& event) {
    const auto step = ProgressStep::fromEvent(event);
    if (!step) return;
    if (options_.json) {
      Json line = Json::object(
          {{"event", "step"}, {"step_type", rawValue(step->type)}, {"title", step->title}});
      if (step->detail) line.set("detail", *step->detail);
      if (step->url) line.set("url", *step->url);
      return printLine(line);
    }
    std::string line = step->title;
    for (const auto& more : {step->detail, step->url}) {
      if (more && !more->empty()) line += " — " + *more;
    }
    tell("🔎 " + line);
  }

  void answered(const std::string& summary, const std::vector<ResearchSource>& sources) {
    if (options_.json) {
      Json list = Json::array();
      for (const ResearchSource& source : sources) list.push(source.toJson());
      printLine(
          Json::object({{"event", "result"}, {"summary", summary}, {"sources", std::move(list)}}));
    } else {
      std::cout << printable(markdown::plainText(markdown::parse(summary))) << "\n";
      if (!sources.empty()) std::cout << "\nSources:\n";
      for (size_t i = 0; i < sources.size(); ++i) {
        std::cout << i + 1 << ". " << printable(sources[i].title) << "\n   "
                  << printable(sources[i].url) << "\n";
      }
      std::cout << std::flush;
    }
    save(summary, sources);
  }

  void save(const std::string& summary, const std::vector<ResearchSource>& sources) {
    ResearchSession session;
    session.id = core_.platform.random.uuid();
    session.query = options_.question;
    session.summary = summary;
    session.sources = sources;
    const auto end = [this] { backends_.mainLoop().quit(done); };
    core_.research.saveResearchSession(std::move(session), [end](const Status&) { end(); });
    Dispatch& dispatch = core_.platform.dispatch;
    saveTimer_ = dispatch.after(dispatch.mainQueue(), saveTimeout, end);
  }

  void failed(const std::string& text) {
    if (options_.json) {
      printLine(Json::object(
          {{"event", "error"}, {"domain", "ResearchService"}, {"code", 1}, {"description", text}}));
    }
    tell("kestrin: " + text);
    backends_.mainLoop().quit(cli::failed);
  }

  LinuxPlatform& backends_;
  CoreServices& core_;
  const ResearchOptions& options_;
  std::unique_ptr<ResearchRun> run_;
  TimerHandle saveTimer_;
};

}  // namespace

int research(const ResearchOptions& options) {
  ResearchOptions asked = options;
  asked.question = text::trim(options.question);
  if (asked.question.empty()) {
    tell("kestrin: the question is empty");
    return wrongUsage;
  }
  LinuxPlatform backends([](const std::string& line) { tell("kestrin: " + line); });
  CoreServices core(backends.platform(), Endpoints::fromEnvironment());
  core.logger.setSink([](std::string_view line) { tell(std::string(line)); });
  Question question(backends, core, asked);
  backends.platform().dispatch.mainQueue()->post([&] { question.ask(); });
  const int status = backends.mainLoop().run();
  backends.endJobs();
  return status;
}

}  // namespace kestrin::cli
