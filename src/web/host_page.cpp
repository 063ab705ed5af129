#include "web/host_page.h"

#include <QFile>
#include <QJsonDocument>
#include <QWebChannel>
#include <QWebEngineLoadingInfo>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineSettings>
#include <utility>

#include "platform/web_page.h"
#include "web/message_port.h"

namespace kestrin::web {
namespace {

constexpr std::chrono::seconds policyLimit(10);

constexpr const char* senderScript = R"js(
(() => {
  const early = [];
  let port = null;
  window.kestrin = Object.freeze({
    send: (value) => {
      const text = JSON.stringify(value);
      if (port) port.send(text); else early.push(text);
    }
  });
  new QWebChannel(qt.webChannelTransport, (channel) => {
    port = channel.objects.port;
    early.forEach((text) => port.send(text));
  });
})();
)js";

QString readAll(const QString& path, bool& ok) {
  QFile file(path);
  ok = file.open(QIODevice::ReadOnly);
  return ok ? QString::fromUtf8(file.readAll()) : QString();
}

const char* levelName(QWebEnginePage::JavaScriptConsoleMessageLevel level) {
  switch (level) {
    case QWebEnginePage::InfoMessageLevel:
      return "info";
    case QWebEnginePage::WarningMessageLevel:
      return "warning";
    case QWebEnginePage::ErrorMessageLevel:
      break;
  }
  return "error";
}

}  // namespace

HostPage::HostPage(QWebEngineProfile* profile, ControlChannel& channel, bool mayUseMedia)
    : QWebEnginePage(profile), channel_(channel), mayUseMedia_(mayUseMedia) {
  QWebEngineSettings* options = settings();
  options->setAttribute(QWebEngineSettings::ErrorPageEnabled, false);
  options->setAttribute(QWebEngineSettings::PluginsEnabled, false);
  options->setAttribute(QWebEngineSettings::PdfViewerEnabled, false);
  options->setAttribute(QWebEngineSettings::NavigateOnDropEnabled, false);
  // The other side of a call is heard without a click into the page first.
  options->setAttribute(QWebEngineSettings::PlaybackRequiresUserGesture, !mayUseMedia);
  auto* web = new QWebChannel(this);
  web->registerObject(QStringLiteral("port"), new MessagePort(channel_, web));
  connect(this, &QWebEnginePage::featurePermissionRequested, this, &HostPage::decideFeature);
  connect(this, &QWebEnginePage::loadStarted, this, [this, web] {
    // Other people's pages reach nothing of this process.
    setWebChannel(isLocal_ ? web : nullptr);
  });
  setWebChannel(web);
  connect(this, &QWebEnginePage::loadingChanged, this, [this](const QWebEngineLoadingInfo& info) {
    const std::string url = info.url().toString(QUrl::FullyEncoded).toStdString();
    if (info.status() == QWebEngineLoadingInfo::LoadSucceededStatus) {
      channel_.send(Json::object({{"event", "loaded"}, {"url", url.substr(0, longestText)}}));
    } else if (info.status() == QWebEngineLoadingInfo::LoadFailedStatus) {
      channel_.send(Json::object({{"event", "failed"},
                                  {"url", url.substr(0, longestText)},
                                  {"description", info.errorString().toStdString()}}));
    }
  });
}

void HostPage::loadAddress(const QString& url) {
  isLocal_ = loadsLocal_ = false;
  scripts().clear();
  setUrl(QUrl(url));
}

void HostPage::loadLocal(const QString& html, const QStringList& scriptFiles) {
  isLocal_ = loadsLocal_ = true;
  scripts().clear();
  injectScripts(scriptFiles);
  setHtml(html, QUrl(QString::fromLatin1(localWebAddress)));
}

void HostPage::injectScripts(const QStringList& files) {
  const auto inject = [this](const QString& name, const QString& source) {
    QWebEngineScript script;
    script.setName(name);
    script.setSourceCode(source);
    script.setInjectionPoint(QWebEngineScript::DocumentCreation);
    script.setWorldId(QWebEngineScript::MainWorld);
    scripts().insert(script);
  };
  bool ok = false;
  const QString transport = readAll(QStringLiteral(":/qtwebchannel/qwebchannel.js"), ok);
  // In one: the order of several is nobody's promise.
  QString all = transport + QString::fromLatin1(senderScript);
  for (const QString& file : files) {
    all += readAll(file, ok) + QStringLiteral("\n");
    if (!ok) {
      channel_.send(Json::object({{"event", "failed"},
                                  {"url", file.toStdString()},
                                  {"description", "The file cannot be read"}}));
    }
  }
  inject(QStringLiteral("kestrin"), all);
}

bool HostPage::isOwn(const QUrl& url) const {
  return isLocal_ && url.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment) ==
                         QUrl(QStringLiteral("https://localhost"));
}

bool HostPage::acceptNavigationRequest(const QUrl& url, NavigationType, bool isMainFrame) {
  if (isMainFrame && std::exchange(loadsLocal_, false)) return true;
  const int64_t id = ++lastNavigation_;
  channel_.send(
      Json::object({{"event", "navigate"},
                    {"id", id},
                    {"url", url.toString(QUrl::FullyEncoded).toStdString().substr(0, longestText)},
                    {"main", isMainFrame},
                    {"unasked", !isLocal_}}));
  const auto answer = channel_.await(
      [id](const Json& command) {
        return command.stringAt("do", "") == "policy" && command.intAt("id") == id;
      },
      policyLimit);
  return answer && answer->boolAt("allow").value_or(false);
}

void HostPage::decideFeature(const QUrl& origin, Feature feature) {
  const bool isMedia = feature == MediaAudioCapture || feature == MediaVideoCapture ||
                       feature == MediaAudioVideoCapture;
  setFeaturePermission(
      origin, feature,
      isMedia && mayUseMedia_ && isOwn(origin) ? PermissionGrantedByUser : PermissionDeniedByUser);
}

void HostPage::javaScriptConsoleMessage(JavaScriptConsoleMessageLevel level, const QString& message,
                                        int, const QString&) {
  channel_.send(Json::object({{"event", "console"},
                              {"level", levelName(level)},
                              {"text", message.left(longestText).toStdString()}}));
}

}  // namespace kestrin::web
