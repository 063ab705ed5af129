#include "dictation/caret_paste.h"

#include <optional>
#include <utility>

#include "dictation/terminal_text.h"
#include "platform/text/text.h"

namespace kestrin {

/// Owned by its jobs as well, so that a paste under way ends in order.
struct CaretPaste::Worker {
  InsertionPorts ports;
  Logger& logger;
  UndeliveredStore& undelivered;

  struct Target {
    std::string appName;
    std::optional<AxElement> element;
    std::string role;
  };

  Target findTarget() {
    Target target;
    const auto application = ports.workspace.frontmostApplication();
    if (!application) return target;
    target.appName = application->name;
    if (auto focused = ports.accessibility.focusedElement(application->pid)) {
      target.element = *focused;
      target.role = ports.accessibility.role(*focused).value_or("");
    }
    return target;
  }

  DeliveryReport undeliveredReport(const std::string& text, const Target& target,
                                   DeliveryOutcome outcome, const std::string& reason) {
    undelivered.keepText(
        {ports.random.uuid(), ports.dispatch.clock().wallNow(), text, target.appName, reason});
    const std::string where = outcome == DeliveryOutcome::clipboard
                                  ? " - the text is on the clipboard"
                                  : " - the text is kept to be sent again";
    return {"", outcome, text, "⚠️ " + reason + where};
  }

  /// Whether the text stands before the caret now; nothing where that cannot be read.
  std::optional<bool> readBack(const Target& target, const std::string& text) {
    if (!target.element) return std::nullopt;
    const auto caret = ports.accessibility.selectedRange(*target.element);
    if (!caret) return std::nullopt;
    const int length = static_cast<int>(text::utf16Length(text));
    const int begin = caret->location - length;
    if (begin < 0) return false;
    const auto found = ports.accessibility.textRange(*target.element, begin, caret->location);
    if (!found) return std::nullopt;
    return *found == text;
  }

  DeliveryReport paste(const std::string& given) {
    // A dictation without words changes nothing, the clipboard included.
    if (given.empty()) return {};
    const auto target = findTarget();
    const auto text = target.role == "AXTerminal" ? textForTerminal(given) : given;
    if (text.empty()) return {};
    if (target.role == "AXSecureTextField") {
      return undeliveredReport(text, target, DeliveryOutcome::kept, "Password fields get no text");
    }
    const auto previous = ports.pasteboard.string();
    if (auto set = ports.pasteboard.setString(text); !set) {
      return undeliveredReport(text, target, DeliveryOutcome::kept, set.error().description);
    }
    const int seen = ports.pasteboard.fetches();
    std::vector<std::string> modifiers{"control"};
    if (target.role == "AXTerminal") modifiers.push_back("shift");
    const auto chordAt = ports.dispatch.clock().steadyNow();
    if (auto chord = ports.input.chord(modifiers, "v"); !chord) {
      return undeliveredReport(text, target, DeliveryOutcome::clipboard, chord.error().description);
    }
    if (!ports.pasteboard.waitForFetch(seen, fetchTimeout)) {
      return undeliveredReport(text, target, DeliveryOutcome::clipboard,
                               "Nothing took the pasted text");
    }
    const auto elapsed = ports.dispatch.clock().steadyNow() - chordAt;
    if (elapsed < restoreDelay) ports.dispatch.clock().sleep(restoreDelay - elapsed, "pasted text");
    const auto arrived = readBack(target, text);
    if (previous && ports.pasteboard.isOwner()) {
      if (auto restored = ports.pasteboard.setString(*previous); !restored) {
        logger.log("Paste", LogLevel::warning, "The clipboard's old text could not be put back");
      }
    }
    // A fetched text that is not before the caret was most likely taken all the same: programs move
    // their caret as they like.
    const bool sure = arrived.value_or(false);
    return {"", sure ? DeliveryOutcome::pasted : DeliveryOutcome::unverified,
            sure ? std::string{} : text, ""};
  }
};

CaretPaste::CaretPaste(InsertionPorts ports, Logger& logger, UndeliveredStore& undelivered)
    : dispatch_(ports.dispatch),
      queue_(ports.dispatch.makeQueue("com.kestrin.paste")),
      worker_(std::make_shared<Worker>(Worker{ports, logger, undelivered})) {}

void CaretPaste::pasteText(std::string text, std::function<void(const DeliveryReport&)> done) {
  queue_->post([worker = worker_, main = dispatch_.mainQueue(), text = std::move(text),
                done = lifetime_.guard(std::move(done))] {
    main->post([done, report = worker->paste(text)]() mutable { done(report); });
  });
}

}  // namespace kestrin
