#include "cli/commands.h"

int main(int argc, char** argv) { return kestrin::cli::run(argc, argv); }
