// completion.h: tells a shell what may stand at the cursor of a command line, from the options that
// CLI11 knows. Who asks are the scripts in packaging/completion.
#ifndef TOOLS_COMMON_COMPLETION_H
#define TOOLS_COMMON_COMPLETION_H

#include <CLI/CLI.hpp>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tools {

struct Candidate {
  std::string word;
  std::string help;  // may be empty

  bool operator==(const Candidate&) const = default;
};

// Stands for the names of files, which the shell knows.
inline const Candidate anyFile{"", "files"};

// What was typed before, by the names of options ("--web") and positionals ("APPL").
using GivenValues = std::map<std::string, std::string>;

// Finds the values of an option or positional, by its name, that the command line itself does not
// know. What it throws means that there are none.
using FindValues = std::function<std::vector<Candidate>(
    const CLI::App& command, const std::string& name, const GivenValues& given)>;

// What may stand in place of the last of `words`, which may be empty; the name of the program is
// not among them. The last word only decides what kind of candidates there are, not which: what
// matches it the shells know best.
std::vector<Candidate> candidatesFor(CLI::App& app, const std::vector<std::string>& words,
                                     const FindValues& findValues);

// When the first argument asks for it, prints candidates, one a line, and returns the exit status,
// 0 in any case: whoever types a command line is not told what is wrong with it. The arguments:
//   --complete WORD...           WORD, or WORD, a tab and help: for the last of the words
//   --complete-line BREAKS LINE  for bash, as described in shell_line.h: those only that match what
//                                is there of the last word, each as bash is to insert it
std::optional<int> complete(CLI::App& app, int argc, const char* const* argv,
                            const FindValues& findValues = {});

}  // namespace tools

#endif  // TOOLS_COMMON_COMPLETION_H
