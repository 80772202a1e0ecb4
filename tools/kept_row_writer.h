// kept_row_writer.h: kept rows as text.
#ifndef TOOLS_KEPT_ROW_WRITER_H
#define TOOLS_KEPT_ROW_WRITER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kept_rows_reader.h"

namespace tools {

class KeptRowWriter {
 public:
  virtual ~KeptRowWriter() = default;
  // Once, before the first row.
  virtual void columns(const std::vector<std::string>& names) = 0;
  // The row's line, and what is due before it.
  virtual std::string format(const std::vector<KeptValue>& values) = 0;
};

// Time, source and attributes for people; what could steer a terminal is escaped. `screenLines` as
// for a TextTable.
std::unique_ptr<KeptRowWriter> makeKeptTableWriter(std::size_t screenLines);

// An object of the columns per line, in their order, numbers as they were written.
std::unique_ptr<KeptRowWriter> makeKeptJsonLinesWriter();

// Comma-separated values that come in pieces, cut anywhere, in whole records.
class CsvRecords {
 public:
  // Adds a piece, and returns the records that are complete now.
  std::string take(std::string_view piece);
  // Of those returned so far, the header among them.
  std::uint64_t count() const { return _count; }
  bool isInRecord() const { return !_rest.empty(); }

 private:
  std::string _rest;
  bool _isQuoted = false;
  std::uint64_t _count = 0;
};

}  // namespace tools

#endif  // TOOLS_KEPT_ROW_WRITER_H
