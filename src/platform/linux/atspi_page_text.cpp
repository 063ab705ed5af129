#include "platform/linux/atspi_page_text.h"

#include "platform/linux/atspi_toolkits.h"
#include "platform/text/text.h"

namespace kestrin::atspi {
namespace {

/// Stands for a child inside its parent's text.
constexpr std::string_view childMark = "\xEF\xBF\xBC";
constexpr int nodeLimit = 2000;

class PageReader {
 public:
  PageReader(AtspiBus& bus, size_t limit, const Budget& budget)
      : bus_(bus), limit_(limit), budget_(budget) {}

  Status read(const AxElement& element) {
    auto own =
        bus_.call<std::string>(element, textInterface, "GetText", budget_, int32_t{0}, int32_t{-1});
    if (!own && own.error().code != dbus::refused) return fail(own.error());
    const auto pieces = text::split(own.value_or(""), childMark);
    if (pieces.size() == 1 && !pieces.front().empty()) {
      append(pieces.front());
      return {};
    }
    auto children = bus_.children(element, budget_);
    if (!children) return {};
    std::vector<Child> inside;
    for (const auto& child : *children)
      inside.push_back({child, bus_.roleNumber(child, budget_).value_or(0)});
    // Chromium lists the stretches of plain text as children too, without a mark for them.
    if (pieces.size() > 1 && inside.size() != pieces.size() - 1) {
      std::erase_if(inside, [](const Child& child) { return child.role == roleStatic; });
    }
    append(pieces.front());
    for (size_t i = 0; i < inside.size(); ++i) {
      readChild(inside[i]);
      if (i + 1 < pieces.size()) append(pieces[i + 1]);
    }
    return {};
  }

  std::string result() const { return text::prefix(text::trim(text_), limit_); }

 private:
  struct Child {
    AxElement element;
    uint32_t role;
  };

  void readChild(const Child& child) {
    // A character takes four bytes at most: enough is known without counting characters each time.
    if (++nodes_ > nodeLimit || budget_.spent() || text_.size() > limit_ * 4) return;
    if (child.role == rolePassword) return;
    const bool block = child.role != roleLink && child.role != roleStatic;
    if (block) breakLine();
    read(child.element);
    if (block) breakLine();
  }

  void append(std::string_view piece) { text_ += piece; }
  void breakLine() {
    if (!text_.empty() && text_.back() != '\n') text_ += '\n';
  }

  AtspiBus& bus_;
  size_t limit_;
  const Budget& budget_;
  int nodes_ = 0;
  std::string text_;
};

}  // namespace

Result<std::string> pageText(AtspiBus& bus, const AxElement& document, size_t limit,
                             const Budget& budget) {
  PageReader reader(bus, limit, budget);
  if (auto done = reader.read(document); !done) {
    auto error = done.error();
    error.domain = "Browser";
    return fail(error);
  }
  return reader.result();
}

}  // namespace kestrin::atspi
