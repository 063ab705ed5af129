#pragma once

#include <QSocketNotifier>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <memory>

#include "web/control_channel.h"
#include "web/host_page.h"

namespace kestrin::web {

/// The one window of this program: does what the other side commands, tells it what happens.
class WebWindow final : public QWebEngineView {
 public:
  /// `options` is the first command.
  WebWindow(ControlChannel& channel, const Json& options);
  ~WebWindow() override;

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void obeyAll();
  void obey(const Json& command);
  void runScript(int64_t id, const QString& script);

  ControlChannel& channel_;
  QWebEngineProfile profile_;  ///< without a name: nothing of it is ever on disk
  std::unique_ptr<HostPage> page_;
  QSocketNotifier commands_;
};

}  // namespace kestrin::web
