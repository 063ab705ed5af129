#pragma once

#include <QWebEnginePage>
#include <functional>

#include "web/control_channel.h"

namespace kestrin::web {

/// The browser's page with this program's rules: where it goes is asked over the channel, nothing
/// opens a second window, no permission is given but microphone and camera to a page of our own.
class HostPage final : public QWebEnginePage {
 public:
  HostPage(QWebEngineProfile* profile, ControlChannel& channel, bool mayUseMedia);

  void loadAddress(const QString& url);
  void loadLocal(const QString& html, const QStringList& scriptFiles);

 protected:
  bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override;
  QWebEnginePage* createWindow(WebWindowType) override { return this; }
  void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& message,
                                int line, const QString& source) override;

 private:
  void decideFeature(const QUrl& origin, Feature feature);
  void injectScripts(const QStringList& files);
  bool isOwn(const QUrl& url) const;

  ControlChannel& channel_;
  const bool mayUseMedia_;
  bool isLocal_ = false;     ///< shows a page of our own
  bool loadsLocal_ = false;  ///< the navigation that is coming brings it
  int64_t lastNavigation_ = 0;
};

}  // namespace kestrin::web
