#include "shell/design/reading.h"

#include <QScrollBar>
#include <QTextDocument>

#include "shell/design/controls.h"

namespace kestrin {
namespace {

using markdown::Block;

QString escaped(const std::string& text) { return qt(text).toHtmlEscaped().replace("\n", "<br/>"); }

QString spansHtml(const std::vector<markdown::Span>& spans) {
  QString out;
  for (const auto& span : spans) {
    QString piece = escaped(span.text);
    if (span.code) piece = "<code>" + piece + "</code>";
    if (span.strong) piece = "<b>" + piece + "</b>";
    if (span.emphasis) piece = "<i>" + piece + "</i>";
    if (span.struck) piece = "<s>" + piece + "</s>";
    if (!span.link.empty()) {
      piece = "<a href=\"" + qt(span.link).toHtmlEscaped() + "\">" + piece + "</a>";
    }
    out += piece;
  }
  return out;
}

QString blockHtml(const Block& block);

QString childrenHtml(const Block& block) {
  QString out;
  for (const Block& child : block.children) out += blockHtml(child);
  return out;
}

QString tableHtml(const Block& table) {
  QString out = "<table border=\"1\" cellspacing=\"0\" cellpadding=\"5\">";
  bool head = true;
  for (const Block& row : table.children) {
    out += "<tr>";
    for (const Block& cell : row.children) {
      const QString words = spansHtml(cell.spans) + childrenHtml(cell);
      out += head ? "<th>" + words + "</th>" : "<td>" + words + "</td>";
    }
    out += "</tr>";
    head = false;
  }
  return out + "</table>";
}

QString blockHtml(const Block& block) {
  const QString words = spansHtml(block.spans);
  switch (block.kind) {
    case Block::Kind::paragraph:
      return "<p>" + words + "</p>";
    case Block::Kind::heading: {
      const QString tag = QString("h%1").arg(std::min(block.level + 1, 6));
      return "<" + tag + ">" + words + "</" + tag + ">";
    }
    case Block::Kind::list:
      return block.ordered
                 ? QString("<ol start=\"%1\">").arg(block.start) + childrenHtml(block) + "</ol>"
                 : "<ul>" + childrenHtml(block) + "</ul>";
    case Block::Kind::item:
      return "<li>" + words + childrenHtml(block) + "</li>";
    case Block::Kind::code:
      return "<pre>" + words + "</pre>";
    case Block::Kind::quote:
      return "<blockquote>" + words + childrenHtml(block) + "</blockquote>";
    case Block::Kind::rule:
      return "<hr/>";
    case Block::Kind::table:
      return tableHtml(block);
    case Block::Kind::row:
    case Block::Kind::cell:
      return words + childrenHtml(block);
  }
  return words;
}

}  // namespace

Reading::Reading(QWidget* parent) : QTextBrowser(parent) {
  setProperty("role", "reading");
  setOpenLinks(false);
  setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
  document()->setDocumentMargin(0);
  connect(this, &QTextBrowser::anchorClicked, this, [this](const QUrl& url) {
    if (onLink) onLink(url.toString(QUrl::FullyEncoded).toStdString());
  });
}

void Reading::setBlocks(const std::vector<markdown::Block>& blocks) {
  QString html;
  for (const Block& block : blocks) html += blockHtml(block);
  setHtml(html);
  setAccessibleName(toPlainText().left(200));
  fit();
}

QVariant Reading::loadResource(int, const QUrl&) { return {}; }

void Reading::resizeEvent(QResizeEvent* event) {
  QTextBrowser::resizeEvent(event);
  fit();
}

void Reading::fit() {
  document()->setTextWidth(viewport()->width());
  setFixedHeight(int(document()->size().height()) + 4);
}

}  // namespace kestrin
