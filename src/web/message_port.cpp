#include "web/message_port.h"

namespace kestrin::web {

void MessagePort::send(const QString& text) {
  if (text.size() > longestText) return;
  auto body = Json::parse(text.toStdString());
  if (body) channel_.send(Json::object({{"event", "message"}, {"body", std::move(*body)}}));
}

}  // namespace kestrin::web
