#pragma once

#include <QProxyStyle>

namespace kestrin {

/// The small marks that a style sheet cannot draw without picture files: the boxes and rings of
/// what can be checked, in colours that stand out from every ground. Belongs below the style sheet:
/// set it as the application's style.
class ControlStyle final : public QProxyStyle {
 public:
  ControlStyle() : QProxyStyle("Fusion") {}
  void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                     const QWidget* widget) const override;
};

}  // namespace kestrin
