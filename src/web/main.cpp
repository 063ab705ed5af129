#include <QApplication>
#include <iostream>
#include <signal.h>

#include "platform/linux/application_id.h"
#include "web/control_channel.h"
#include "web/web_window.h"

namespace {

constexpr std::chrono::seconds firstCommandLimit(30);

}  // namespace

int main(int argc, char** argv) {
  using namespace kestrin;
  if (argc > 1) {
    std::cerr << "kestrin-web shows a web page for Kestrin, which starts it and speaks to it over "
                 "its standard streams.\n";
    return 2;
  }
  signal(SIGPIPE, SIG_IGN);
  web::ControlChannel channel;
  const auto options = channel.await(
      [](const Json& command) { return command.stringAt("do", "") == "open"; }, firstCommandLimit);
  if (!options) return 2;
  QApplication toolkit(argc, argv);
  QApplication::setApplicationName("Kestrin");
  QApplication::setDesktopFileName(desktopApplicationId);
  web::WebWindow window(channel, *options);
  window.show();
  return QApplication::exec();
}
