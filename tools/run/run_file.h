// run_file.h: the file that says what `zordp run` provides, in TOML.
#ifndef TOOLS_RUN_RUN_FILE_H
#define TOOLS_RUN_RUN_FILE_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "suite/registration.h"

namespace tools {

constexpr std::size_t mostRowsTables = 64;  // each has a thread and a process

// A table [[rows]]: a command, and the group and source of the rows that it prints.
struct RowsTable {
  suite::RegisteredGroup group;
  std::string source;
  std::string command;
  std::optional<std::chrono::milliseconds> every;  // without it the command runs all the time
  // For a run, or without `every` for a line.
  std::optional<std::chrono::milliseconds> timeout;
  enum class Format { csv, jsonl, words } format = Format::csv;
  std::vector<std::string> columns;  // names of attributes of the group
};

struct RunFile {
  suite::Registration registration;
  std::vector<RowsTable> rows;  // one at least
};

// Reads it; "-" is standard input. Throws a Failure: EX_NOINPUT when it cannot be read, EX_DATAERR
// with a line for everything that is wrong, the first one alone when the file is no TOML.
RunFile readRunFile(const std::string& path);

// The same from the file's content; `path` is for the errors.
RunFile readRunText(std::string_view text, const std::string& path);

}  // namespace tools

#endif  // TOOLS_RUN_RUN_FILE_H
