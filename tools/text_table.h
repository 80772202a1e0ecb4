// text_table.h: aligned columns for people.
#ifndef TOOLS_TEXT_TABLE_H
#define TOOLS_TEXT_TABLE_H

#include <cstddef>
#include <string>
#include <vector>

namespace tools {

struct TableCell {
  std::string name;  // of the column
  std::string text;
  bool isNumber = false;
  std::size_t leastWidth = 0;
};

// Room for the numbers that a first row's small ones are followed by.
constexpr std::size_t numberWidth = 8;

// What could steer a terminal is escaped. The header is repeated when the columns' names change,
// when a value needs a wider column, and after each `screenLines` lines (0: not).
class TextTable {
 public:
  explicit TextTable(std::size_t screenLines) : _screenLines(screenLines) {}

  // A row, and a header before it when it is due; each ends in a line end.
  std::string format(const std::vector<TableCell>& cells);

 private:
  bool hasOtherNames(const std::vector<TableCell>& cells) const;

  std::size_t _screenLines;
  std::size_t _linesSinceHeader = 0;
  std::vector<std::string> _names;
  std::vector<std::size_t> _widths;
};

// The lines that a header on standard output stays in sight for, 0 when that is no terminal.
std::size_t screenLines();

}  // namespace tools

#endif  // TOOLS_TEXT_TABLE_H
