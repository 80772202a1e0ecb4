// history_command.h: `zordc history`: rows that the server kept, to standard output.
#ifndef TOOLS_HISTORY_COMMAND_H
#define TOOLS_HISTORY_COMMAND_H

#include <optional>
#include <string>

namespace tools {

struct HistoryOptions {
  std::string appl;
  std::string group;
  std::optional<std::string> source;
  std::optional<std::string> since;  // times as the server reads them
  std::optional<std::string> until;
  std::string format = "table";  // or csv, jsonl
  std::string web = "http://127.0.0.1:1980/";
  std::string tokenPath;  // empty: no token
};

// Returns the exit status, 0 also when nobody reads the output any more. Throws a Failure; what
// came before it is printed.
int history(const HistoryOptions& options);

}  // namespace tools

#endif  // TOOLS_HISTORY_COMMAND_H
