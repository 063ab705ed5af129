#include "shell/design/accessible_scroll.h"

#include <QAccessibleWidget>
#include <QScrollArea>

namespace kestrin {
namespace {

/// Its children are the widgets in it; a number that none of them has is none.
class ScrollAreaInterface final : public QAccessibleWidget {
 public:
  explicit ScrollAreaInterface(QScrollArea* area) : QAccessibleWidget(area, QAccessible::Client) {}
};

QAccessibleInterface* makeInterface(const QString&, QObject* object) {
  auto* area = qobject_cast<QScrollArea*>(object);
  return area ? new ScrollAreaInterface(area) : nullptr;
}

}  // namespace

void installAccessibleScrollAreas() { QAccessible::installFactory(makeInterface); }

}  // namespace kestrin
