#pragma once

#include <QObject>
#include <QString>

#include "web/control_channel.h"

namespace kestrin::web {

/// The other side cuts lines at a mebibyte; escaping can make six bytes of one.
constexpr qsizetype longestText = 100'000;

/// What a local page's `kestrin.send` reaches.
class MessagePort final : public QObject {
  Q_OBJECT
 public:
  MessagePort(ControlChannel& channel, QObject* parent) : QObject(parent), channel_(channel) {}
  Q_INVOKABLE void send(const QString& text);

 private:
  ControlChannel& channel_;
};

}  // namespace kestrin::web
