// row_writer.h: pushed rows as text.
#ifndef TOOLS_ROW_WRITER_H
#define TOOLS_ROW_WRITER_H

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "tools/pushed_row.h"

namespace tools {

// Formats one row after the other. What format() returns ends in a line end, holds the row and,
// where the format has one and it is due, a header before it. `time` is the time of arrival.
class RowWriter {
 public:
  virtual ~RowWriter() = default;
  virtual std::string format(const std::string& time, const PushedRow& row) = 0;
};

// Aligned columns for people; what could steer a terminal is escaped. The header is repeated when
// the attributes change, when a value needs a wider column, and after each `screenLines` lines (0:
// not).
std::unique_ptr<RowWriter> makeTableWriter(std::size_t screenLines);

// Comma-separated values as in RFC 4180, with columns time and handle before the attributes. When
// the attributes change, an empty line ends the block and a new header begins the next.
std::unique_ptr<RowWriter> makeCsvWriter();

// {"time": TEXT, "handle": NUMBER, "values": {ATTRIBUTE: NUMBER or TEXT, ...}} per line. What is
// not UTF-8 in a text becomes U+FFFD.
std::unique_ptr<RowWriter> makeJsonLinesWriter();

// In UTC with milliseconds: 2026-01-31T23:59:59.123Z
std::string formatTime(std::chrono::system_clock::time_point time);

// The names of the row's attributes in their order.
std::vector<std::string> attributeNames(const PushedRow& row);

}  // namespace tools

#endif  // TOOLS_ROW_WRITER_H
