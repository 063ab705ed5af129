#include "web/web_window.h"

#include <QApplication>
#include <QCloseEvent>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QTimer>
#include <utility>

namespace kestrin::web {
namespace {

constexpr int crashed = 70;
constexpr qsizetype largestResult = 500'000;

QString text(const Json& command, const char* key) {
  return QString::fromStdString(command.stringAt(key, ""));
}

Json jsonOf(const QVariant& value) {
  const QByteArray whole =
      QJsonDocument(QJsonArray{QJsonValue::fromVariant(value)}).toJson(QJsonDocument::Compact);
  if (whole.size() > largestResult) return {};
  const auto parsed = Json::parse(whole.toStdString());
  return parsed && !parsed->items().empty() ? parsed->items().front() : Json();
}

}  // namespace

WebWindow::WebWindow(ControlChannel& channel, const Json& options)
    : channel_(channel), commands_(channel.descriptor(), QSocketNotifier::Read) {
  page_ = std::make_unique<HostPage>(&profile_, channel_, options.boolAt("media").value_or(false));
  setPage(page_.get());
  setWindowTitle(text(options, "title"));
  setContextMenuPolicy(Qt::NoContextMenu);
  resize(static_cast<int>(options.intAt("width").value_or(900)),
         static_cast<int>(options.intAt("height").value_or(680)));
  connect(page_.get(), &QWebEnginePage::renderProcessTerminated, this,
          [this](QWebEnginePage::RenderProcessTerminationStatus status, int) {
            if (status == QWebEnginePage::NormalTerminationStatus) return;
            channel_.send(Json::object({{"event", "crashed"}}));
            QApplication::exit(crashed);
          });
  connect(page_.get(), &QWebEnginePage::windowCloseRequested, this, [this] { close(); });
  connect(&commands_, &QSocketNotifier::activated, this, [this] {
    if (channel_.receive()) return obeyAll();
    commands_.setEnabled(false);
    QApplication::exit(0);
  });
  // A page that asks where it may go reads on the channel too: what came meanwhile is kept there.
  connect(
      page_.get(), &QWebEnginePage::loadStarted, this, [this] { obeyAll(); }, Qt::QueuedConnection);
  QTimer::singleShot(0, this, [this] { obeyAll(); });
}

WebWindow::~WebWindow() {
  setPage(nullptr);
  page_.reset();  // before its profile
}

void WebWindow::obeyAll() {
  while (const auto command = channel_.next()) obey(*command);
}

void WebWindow::obey(const Json& command) {
  const std::string what = command.stringAt("do", "");
  if (what == "load") {
    page_->loadAddress(text(command, "url"));
  } else if (what == "page") {
    QStringList scripts;
    for (const auto& file : command.stringsAt("scripts"))
      scripts.push_back(QString::fromStdString(file));
    page_->loadLocal(text(command, "html"), scripts);
  } else if (what == "run") {
    runScript(command.intAt("id").value_or(0), text(command, "script"));
  } else if (what == "raise") {
    show();
    raise();
    activateWindow();
  }
}

void WebWindow::runScript(int64_t id, const QString& script) {
  page_->runJavaScript(script, [this, id](const QVariant& value) {
    channel_.send(Json::object({{"event", "result"}, {"id", id}, {"value", jsonOf(value)}}));
  });
}

void WebWindow::closeEvent(QCloseEvent* event) {
  event->accept();
  channel_.send(Json::object({{"event", "closed"}}));
  QApplication::exit(0);
}

}  // namespace kestrin::web
