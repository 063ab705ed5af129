#include "platform/linux/web_process.h"

#include <map>
#include <utility>

#include "platform/json/json.h"

namespace kestrin {
namespace {

const char* const domain = "WebPage";
/// Longer than a page ever takes to leave; a process that hangs is killed then.
constexpr std::chrono::seconds leaveLimit(4);

using Completion = std::function<void(Result<Json>)>;

/// The conversation with one process. Its state belongs to its serial queue, where the lines of the
/// process arrive; handlers run on the caller's.
class Conversation : public std::enable_shared_from_this<Conversation> {
 public:
  Conversation(Dispatch& dispatch, Processes& processes, QueueRef handlersQueue,
               WebPageHandlers handlers)
      : processes_(processes),
        queue_(dispatch.makeQueue("com.kestrin.web")),
        callers_(std::move(handlersQueue)),
        handlers_(std::make_shared<WebPageHandlers>(std::move(handlers))) {}

  void start(ProcessSpec spec, Json options) {
    queue_->post([self = shared_from_this(), spec = std::move(spec), options = std::move(options)] {
      self->begin(spec, options);
    });
  }
  void order(Json command) {
    queue_->post([self = shared_from_this(), command = std::move(command)] {
      if (self->child_) self->child_->write(command.dump() + "\n");
    });
  }
  void run(const std::string& script, Completion completion) {
    queue_->post([self = shared_from_this(), script, completion = std::move(completion)] {
      if (!self->child_) return self->answer(completion, gone());
      const int64_t id = ++self->lastScript_;
      if (completion) self->scripts_[id] = completion;
      self->child_->write(Json::object({{"do", "run"}, {"id", id}, {"script", script}}).dump() +
                          "\n");
    });
  }
  /// On the callers' queue: no handler from now on.
  void leave() {
    handlers_.reset();
    queue_->post([self = shared_from_this()] {
      self->left_ = true;
      if (!self->child_) return;
      self->child_->closeInput();
      self->queue_->postAfter(leaveLimit, [self] {
        if (self->child_) self->child_->kill();
      });
    });
  }

 private:
  static Error gone() { return {domain, webScript, "The page is gone"}; }

  void begin(const ProcessSpec& spec, const Json& options) {
    if (left_) return;
    auto child = processes_.start(
        spec, queue_,
        [self = shared_from_this()](const std::string& line, bool isError) {
          isError ? self->keepComplaint(line) : self->hear(line);
        },
        [self = shared_from_this()](int code) { self->ended(code); });
    if (!child) return tellEnd({domain, webCannotStart, child.error().description});
    child_ = *child;
    child_->write(options.dump() + "\n");
  }

  void hear(const std::string& line) {
    const auto event = Json::parse(line);
    if (!event) return;
    const std::string kind = event->stringAt("event", "");
    const std::string url = event->stringAt("url", "");
    if (kind == "navigate") return askPolicy(*event, url);
    if (kind == "result") return takeResult(*event);
    if (kind == "crashed") {
      crashed_ = true;
    } else if (kind == "closed") {
      toldEnd_ = true;
      tell([](const WebPageHandlers& h) {
        if (h.onClosed) h.onClosed();
      });
    } else if (kind == "loaded") {
      tell([url](const WebPageHandlers& h) {
        if (h.onLoaded) h.onLoaded(url);
      });
    } else if (kind == "failed") {
      tell([failure =
                WebLoadFailure{url, event->stringAt("description", "")}](const WebPageHandlers& h) {
        if (h.onFailed) h.onFailed(failure);
      });
    } else if (kind == "message") {
      const Json* body = event->find("body");
      tell([body = body != nullptr ? *body : Json()](const WebPageHandlers& h) {
        if (h.onMessage) h.onMessage(body);
      });
    } else if (kind == "console") {
      tell([level = event->stringAt("level", "info"),
            text = event->stringAt("text", "")](const WebPageHandlers& h) {
        if (h.onConsole) h.onConsole(level, text);
      });
    }
  }

  void askPolicy(const Json& event, const std::string& url) {
    const WebNavigation navigation{url, event.boolAt("main").value_or(true)};
    const int64_t id = event.intAt("id").value_or(0);
    const bool unasked = event.boolAt("unasked").value_or(true);
    tell([self = shared_from_this(), navigation, id, unasked](const WebPageHandlers& h) {
      const bool allow = h.decidePolicy ? h.decidePolicy(navigation) : unasked;
      self->order(Json::object({{"do", "policy"}, {"id", id}, {"allow", allow}}));
    });
  }

  void takeResult(const Json& event) {
    const auto found = scripts_.find(event.intAt("id").value_or(0));
    if (found == scripts_.end()) return;
    const Json* value = event.find("value");
    answer(found->second, value != nullptr ? *value : Json());
    scripts_.erase(found);
  }

  /// The last line says best why a process that soon ends could not stay.
  void keepComplaint(const std::string& line) {
    if (!line.empty()) complaint_ = line.substr(0, 500);
  }

  void ended(int code) {
    child_.reset();
    for (const auto& [id, completion] : scripts_) answer(completion, gone());
    scripts_.clear();
    if (crashed_) return tellEnd({domain, webCrashed, "The web page crashed"});
    tellEnd({domain, webEnded,
             "The web page ended (" + std::to_string(code) + ")" +
                 (complaint_.empty() ? "" : ": " + complaint_)});
  }

  void tellEnd(const Error& error) {
    if (std::exchange(toldEnd_, true)) return;
    tell([error](const WebPageHandlers& h) {
      if (h.onEnded) h.onEnded(error);
    });
  }

  void answer(const Completion& completion, Result<Json> value) {
    if (!completion) return;
    tell([completion, value = std::move(value)](const WebPageHandlers&) { completion(value); });
  }
  void answer(const Completion& completion, const Error& error) { answer(completion, fail(error)); }

  template <class F>
  void tell(F f) {
    callers_->post([self = shared_from_this(), f = std::move(f)] {
      // A copy: the handler may destroy the page, and with it the handlers.
      if (const auto handlers = self->handlers_) f(*handlers);
    });
  }

  Processes& processes_;
  const QueueRef queue_;
  const QueueRef callers_;
  std::shared_ptr<const WebPageHandlers> handlers_;  ///< the callers' queue
  // The rest on `queue_`.
  ChildProcessRef child_;
  std::map<int64_t, Completion> scripts_;
  int64_t lastScript_ = 0;
  std::string complaint_;
  bool crashed_ = false;
  bool toldEnd_ = false;
  bool left_ = false;
};

class ProcessPage final : public WebPage {
 public:
  explicit ProcessPage(std::shared_ptr<Conversation> conversation)
      : conversation_(std::move(conversation)) {}
  ~ProcessPage() override { conversation_->leave(); }

  void load(const std::string& url) override {
    conversation_->order(Json::object({{"do", "load"}, {"url", url}}));
  }
  void load(const LocalWebPage& page) override {
    conversation_->order(Json::object(
        {{"do", "page"}, {"html", page.html}, {"scripts", Json::arrayOf(page.scriptFiles)}}));
  }
  void run(const std::string& script, Completion completion) override {
    conversation_->run(script, std::move(completion));
  }
  void raise() override { conversation_->order(Json::object({{"do", "raise"}})); }

 private:
  const std::shared_ptr<Conversation> conversation_;
};

class ProcessPages final : public WebPages {
 public:
  ProcessPages(Dispatch& dispatch, Processes& processes, std::string program)
      : dispatch_(dispatch), processes_(processes), program_(std::move(program)) {}

  std::unique_ptr<WebPage> open(WebPageOptions options, QueueRef queue,
                                WebPageHandlers handlers) override {
    auto conversation = std::make_shared<Conversation>(dispatch_, processes_, std::move(queue),
                                                       std::move(handlers));
    ProcessSpec spec;
    spec.program = program_;
    conversation->start(std::move(spec), Json::object({{"do", "open"},
                                                       {"title", options.title},
                                                       {"width", options.width},
                                                       {"height", options.height},
                                                       {"media", options.mayUseMedia}}));
    return std::make_unique<ProcessPage>(std::move(conversation));
  }

 private:
  Dispatch& dispatch_;
  Processes& processes_;
  const std::string program_;
};

}  // namespace

std::unique_ptr<WebPages> makeWebPages(Dispatch& dispatch, Processes& processes,
                                       std::string program) {
  return std::make_unique<ProcessPages>(dispatch, processes, std::move(program));
}

}  // namespace kestrin
