#include "tools/text_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "tools/common/printable.h"

namespace tools {
namespace {

// A longer text runs over: it does not push every later row to the right.
constexpr std::size_t mostColumns = 40;

struct PrintedCell {
  PrintableText content;
  bool alignRight = false;
};
using PrintedCells = std::vector<PrintedCell>;
using Widths = std::vector<std::size_t>;

PrintedCells printedCells(const std::vector<TableCell>& cells,
                          const std::string TableCell::*content) {
  PrintedCells printed;
  printed.reserve(cells.size());
  for (const TableCell& each : cells) printed.push_back({printable(each.*content), each.isNumber});
  return printed;
}

// Makes the columns wide enough; returns whether one of them was not.
bool widen(const PrintedCells& cells, Widths* widths) {
  bool wider = false;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::size_t wanted = std::min(cells[i].content.columns, mostColumns);
    wider = wider || wanted > (*widths)[i];
    (*widths)[i] = std::max((*widths)[i], wanted);
  }
  return wider;
}

std::string tableLine(const PrintedCells& cells, const Widths& widths) {
  std::string text;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::size_t taken = std::min(cells[i].content.columns, widths[i]);
    const std::string blanks(widths[i] - taken, ' ');
    if (i > 0) text += "  ";
    text += cells[i].alignRight ? blanks + cells[i].content.text : cells[i].content.text + blanks;
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text + "\n";
}

}  // namespace

std::string TextTable::format(const std::vector<TableCell>& cells) {
  const PrintedCells printed = printedCells(cells, &TableCell::text);
  const bool changed = hasOtherNames(cells);
  if (changed) {
    _names.clear();
    _widths.clear();
    for (const TableCell& each : cells) {
      _names.push_back(each.name);
      _widths.push_back(each.leastWidth);
    }
    widen(printedCells(cells, &TableCell::name), &_widths);
  }
  const bool wider = widen(printed, &_widths);
  const bool screenFull = _screenLines > 0 && _linesSinceHeader >= _screenLines;
  std::string lines;
  if (changed || wider || screenFull) {
    lines = tableLine(printedCells(cells, &TableCell::name), _widths);
    _linesSinceHeader = 1;
  }
  ++_linesSinceHeader;
  return lines + tableLine(printed, _widths);
}

bool TextTable::hasOtherNames(const std::vector<TableCell>& cells) const {
  return _names.empty() || !std::equal(cells.begin(), cells.end(), _names.begin(), _names.end(),
                                       [](const TableCell& cell, const std::string& name) {
                                         return cell.name == name;
                                       });
}

std::size_t screenLines() {
  winsize size{};
  const bool isScreen = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 2;
  return isScreen ? size.ws_row - 1U : 0;  // the cursor has the last one
}

}  // namespace tools
