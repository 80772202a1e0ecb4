// completion_values.h: the names on the command lines of zordc and zordp that are completed: of
// applications, groups and sources, from the server or a file.
#ifndef TOOLS_COMPLETION_VALUES_H
#define TOOLS_COMPLETION_VALUES_H

#include <string>
#include <vector>

#include "tools/common/completion.h"

namespace tools {

// For FindValues. Somebody waits with a finger on a key: unless there is an answer in half a
// second, each ends the process, with exit status 0 and without a word. Names that a terminal
// cannot show as they are, or that begin with -, are left out. Throw a std::exception when there
// are none to be had.

// From the DCH; for `history` from the page that it would ask.
std::vector<Candidate> consumerValues(const CLI::App& command, const std::string& name,
                                      const GivenValues& given);

// From the file of the registration.
std::vector<Candidate> providerValues(const CLI::App& command, const std::string& name,
                                      const GivenValues& given);

}  // namespace tools

#endif  // TOOLS_COMPLETION_VALUES_H
