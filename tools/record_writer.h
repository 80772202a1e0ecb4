// record_writer.h: records with the same columns each, as text.
#ifndef TOOLS_RECORD_WRITER_H
#define TOOLS_RECORD_WRITER_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tools {

struct RecordColumn {
  std::string name;
  bool isNumber = false;
  std::size_t width = 0;  // least width in a table
};

// Formats records one after the other, a value for each column. What format() returns ends in a
// line end; the first call puts the header before it, where the format has one.
class RecordWriter {
 public:
  virtual ~RecordWriter() = default;
  virtual std::string format(const std::vector<std::string>& values) = 0;
};

// `format` is table, csv or jsonl. A table escapes what could steer a terminal; JSON has an object
// of the columns per line.
std::unique_ptr<RecordWriter> makeRecordWriter(const std::string& format,
                                               std::vector<RecordColumn> columns);

}  // namespace tools

#endif  // TOOLS_RECORD_WRITER_H
