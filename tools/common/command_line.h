// command_line.h: the command line that zordp and zordc have in common, and how they end.
#ifndef TOOLS_COMMON_COMMAND_LINE_H
#define TOOLS_COMMON_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "tools/common/completion.h"

namespace tools {

// A command line with --help, --version and exactly one subcommand. `footer` ends the help text.
void setUpCommandLine(CLI::App& app, const std::string& footer);

// Accepts texts of 1 to `most` characters.
CLI::Validator nameOfAtMost(int most);

// Accepts numbers above 0, up to 1000000000.
CLI::Validator positiveNumber();

// Accepts the given words.
CLI::Validator oneOf(const std::vector<std::string>& words);

// Parses the command line and does `run`, whose result is the exit status. A wrong command line and
// a Failure become a message on standard error that begins with the tool's name, and their exit
// status. A shell that asks what may stand on the command line (completion.h) is answered instead.
int runTool(CLI::App& app, int argc, char** argv, const std::function<int()>& run,
            const FindValues& findValues);

}  // namespace tools

#endif  // TOOLS_COMMON_COMMAND_LINE_H
