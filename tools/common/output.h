// output.h: what a tool prints for its user or for the next program in a pipe.
#ifndef TOOLS_COMMON_OUTPUT_H
#define TOOLS_COMMON_OUTPUT_H

#include <string>

namespace tools {

// Writes `lines` to standard output at once. Returns false when nobody reads it any more; throws a
// Failure (EX_IOERR) when it cannot be written for another reason. SIGPIPE has to be ignored.
bool printLines(const std::string& lines);

}  // namespace tools

#endif  // TOOLS_COMMON_OUTPUT_H
