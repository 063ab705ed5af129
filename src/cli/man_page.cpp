#include "cli/man_page.h"

#include <CLI/CLI.hpp>

#include "platform/text/text.h"

namespace kestrin::cli {
namespace {

/// Text as the formatter takes it: no line begins with a control character, hyphens stay hyphens.
std::string escaped(const std::string& words) {
  auto out = text::replaceAll(words, "\\", "\\e");
  out = text::replaceAll(out, "-", "\\-");
  if (out.starts_with(".") || out.starts_with("'")) out.insert(0, "\\&");
  return text::replaceAll(out, "\n", "\n.br\n");
}

std::string optionHead(const CLI::Option& option) {
  std::string head = "\\fB" + escaped(option.get_name(option.get_positional(), true)) + "\\fR";
  if (option.get_type_size() != 0 && !option.get_positional() && !option.get_type_name().empty()) {
    head += " \\fI" + escaped(option.get_type_name()) + "\\fR";
  }
  return head;
}

void appendOptions(std::string& page, const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    page += ".TP\n" + optionHead(*option) + "\n" + escaped(option->get_description()) + "\n";
  }
}

void appendCommands(std::string& page, const CLI::App& app, const std::string& prefix) {
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    const auto name = prefix + " " + command->get_name();
    page += ".SS " + escaped(name) + "\n" + escaped(command->get_description()) + ".\n";
    appendOptions(page, *command);
    appendCommands(page, *command, name);
  }
}

}  // namespace

std::string manPageOf(const CLI::App& app, const std::string& version) {
  std::string page = ".TH KESTRIN 1 \"\" \"kestrin " + version + "\" \"User Commands\"\n";
  page += ".SH NAME\nkestrin \\- a personal voice assistant for the desktop\n";
  page += ".SH SYNOPSIS\n.B kestrin\n[\\fIsubcommand\\fR] [\\fIoptions\\fR]\n";
  page += ".SH DESCRIPTION\n" + escaped(app.get_description()) + "\n";
  page += ".SH OPTIONS\n";
  appendOptions(page, app);
  page += ".SH SUBCOMMANDS\n";
  appendCommands(page, app, "kestrin");
  page += ".SH NOTES\n" + escaped(app.get_footer()) + "\n";
  return page;
}

}  // namespace kestrin::cli
