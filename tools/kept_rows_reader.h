// kept_rows_reader.h: kept rows as the server writes them, {"columns": [...], "rows": [[...],
// ...]}.
#ifndef TOOLS_KEPT_ROWS_READER_H
#define TOOLS_KEPT_ROWS_READER_H

#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

struct KeptValue {
  enum class Kind { none, number, text };
  Kind kind;
  std::string text;  // a number as it was written
};

class KeptRowsSink {
 public:
  virtual ~KeptRowsSink() = default;
  // Once, before the first row.
  virtual void columns(const std::vector<std::string>& names) = 0;
  // As many values as columns.
  virtual void row(const std::vector<KeptValue>& values) = 0;
};

class MalformedRows : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads the text that `next` returns piece after piece, cut anywhere, until one is empty, and tells
// the sink each row when it is complete. Throws MalformedRows, and what `next` and the sink throw.
void readKeptRows(const std::function<std::string_view()>& next, KeptRowsSink* sink);

}  // namespace tools

#endif  // TOOLS_KEPT_ROWS_READER_H
