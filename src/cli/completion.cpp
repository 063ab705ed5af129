#include "cli/completion.h"

#include <CLI/CLI.hpp>
#include <vector>

#include "platform/text/text.h"

namespace kestrin::cli {
namespace {

/// Subcommands and long options of one level, as a branch of the script's "case", then those below.
void appendLevels(std::string& script, std::vector<std::string>& paths, const CLI::App& app,
                  const std::string& path) {
  std::vector<std::string> words;
  for (const CLI::App* command : app.get_subcommands(nullptr)) words.push_back(command->get_name());
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_group().empty()) continue;
    for (const auto& name : option->get_lnames()) words.push_back("--" + name);
  }
  script += "    \"" + path + "\") words=\"" + text::join(words, " ") + "\" ;;\n";
  for (const CLI::App* command : app.get_subcommands(nullptr)) {
    const std::string below = path + " " + command->get_name();
    paths.push_back("\"" + below + "\"");
    appendLevels(script, paths, *command, below);
  }
}

}  // namespace

std::string bashCompletionOf(const CLI::App& app) {
  std::string levels;
  std::vector<std::string> paths;
  appendLevels(levels, paths, app, "kestrin");
  return "# bash completion for kestrin; written by \"kestrin --help-completion\"\n"
         "_kestrin() {\n"
         "  local path=kestrin words= i\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    case \"$path ${COMP_WORDS[i]}\" in\n"
         "      " +
         text::join(paths, " | \\\n      ") +
         ") path+=\" ${COMP_WORDS[i]}\" ;;\n"
         "    esac\n"
         "  done\n"
         "  case $path in\n" +
         levels +
         "  esac\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
         "}\n"
         "complete -o default -F _kestrin kestrin\n";
}

}  // namespace kestrin::cli
