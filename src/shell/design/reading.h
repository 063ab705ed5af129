#pragma once

#include <QTextBrowser>
#include <functional>
#include <string>
#include <vector>

#include "platform/text/markdown.h"

namespace kestrin {

/// Draws a text with Markdown as tall as it is. Nothing is loaded: no picture, no style, no page; a
/// link goes to `onLink` and nowhere else.
class Reading final : public QTextBrowser {
 public:
  explicit Reading(QWidget* parent = nullptr);
  void setBlocks(const std::vector<markdown::Block>& blocks);
  void setMarkdownText(const std::string& text) { setBlocks(markdown::parse(text)); }

  std::function<void(const std::string& url)> onLink;

 protected:
  QVariant loadResource(int type, const QUrl& name) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void fit();
};

}  // namespace kestrin
