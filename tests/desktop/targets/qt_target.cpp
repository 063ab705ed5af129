// A window with one text field of the kind named first, for the desktop tests. It reads commands on
// standard input, one a line, does them as a user of the program would, and answers each with one
// line: "set TEXT", "select BEGIN END", "type TEXT", "text". Line ends inside a text are written as
// "\n".
#include <QApplication>
#include <QLineEdit>
#include <QMainWindow>
#include <QPlainTextEdit>
#include <QSocketNotifier>
#include <QTextEdit>
#include <cstdio>
#include <functional>
#include <iostream>
#include <map>

namespace {

struct Field {
  QWidget* widget;
  std::function<void(QString)> set, type;
  std::function<QString()> text;
  std::function<void(int, int)> select;
};

template <class Edit>
Field document(Edit* edit) {
  return {edit, [edit](QString t) { edit->setPlainText(t); },
          [edit](QString t) { edit->insertPlainText(t); }, [edit] { return edit->toPlainText(); },
          [edit](int begin, int end) {
            auto cursor = edit->textCursor();
            cursor.setPosition(begin);
            cursor.setPosition(end, QTextCursor::KeepAnchor);
            edit->setTextCursor(cursor);
          }};
}

Field line(const std::string& kind) {
  auto* edit = new QLineEdit;
  if (kind == "password") edit->setEchoMode(QLineEdit::Password);
  if (kind == "full") edit->setMaxLength(3);
  return {edit, [edit](QString t) { edit->setText(t); }, [edit](QString t) { edit->insert(t); },
          [edit] { return edit->text(); },
          [edit](int begin, int end) {
            if (begin == end) {
              edit->setCursorPosition(begin);
            } else {
              edit->setSelection(begin, end - begin);
            }
          }};
}

Field make(const std::string& kind) {
  if (kind == "QTextEdit") return document(new QTextEdit);
  if (kind == "QPlainTextEdit") return document(new QPlainTextEdit);
  return line(kind);
}

std::string perform(Field& field, const std::string& command) {
  const auto space = command.find(' ');
  const auto verb = command.substr(0, space);
  const auto rest = space == command.npos ? "" : command.substr(space + 1);
  const auto text = QString::fromStdString(rest).replace("\\n", "\n");
  if (verb == "set") field.set(text);
  if (verb == "type") field.type(text);
  if (verb == "select") {
    int begin = 0, end = 0;
    std::sscanf(rest.c_str(), "%d %d", &begin, &end);
    field.select(begin, end);
  }
  return field.text().replace("\n", "\\n").toStdString();
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  auto field = make(argc > 1 ? argv[1] : "QTextEdit");
  QMainWindow window;
  window.setWindowTitle("target");
  window.setCentralWidget(field.widget);
  window.resize(400, 200);
  window.show();
  field.widget->setFocus();
  QSocketNotifier input(0, QSocketNotifier::Read);
  QObject::connect(&input, &QSocketNotifier::activated, [&] {
    std::string command;
    if (!std::getline(std::cin, command)) return app.quit();
    std::cout << perform(field, command) << std::endl;
  });
  return app.exec();
}
