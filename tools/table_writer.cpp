#include <algorithm>

#include "tools/common/printable.h"
#include "tools/row_writer.h"

namespace tools {
namespace {

// Room for the numbers that a first row's small ones are followed by.
constexpr std::size_t numberColumns = 8;
// A longer text runs over: it does not push every later row to the right.
constexpr std::size_t mostColumns = 40;

struct Cell {
  PrintableText content;
  bool alignRight = false;
};
using Cells = std::vector<Cell>;

Cells headerCells(const PushedRow& row) {
  Cells cells = {{printable("TIME"), false}, {printable("HANDLE"), true}};
  for (const PushedValue& value : row.values)
    cells.push_back({printable(value.name), value.value.kind == DecodedValue::Kind::number});
  return cells;
}

Cells rowCells(const std::string& time, const PushedRow& row) {
  Cells cells = {{printable(time), false}, {printable(std::to_string(row.handle)), true}};
  for (const PushedValue& value : row.values)
    cells.push_back({printable(value.value.text), value.value.kind == DecodedValue::Kind::number});
  return cells;
}

class TableWriter : public RowWriter {
 public:
  explicit TableWriter(std::size_t screenLines) : _screenLines(screenLines) {}

  std::string format(const std::string& time, const PushedRow& row) override {
    const Cells cells = rowCells(time, row);
    std::vector<std::string> names = attributeNames(row);
    const bool changed = names != _names || _columns.empty();
    if (changed) {
      _names = std::move(names);
      _columns.assign(cells.size(), 0);
      widen(headerCells(row));
      for (std::size_t i = 0; i < row.values.size(); ++i)
        if (cells[i + 2].alignRight) _columns[i + 2] = std::max(_columns[i + 2], numberColumns);
    }
    const bool wider = widen(cells);
    const bool screenFull = _screenLines > 0 && _linesSinceHeader >= _screenLines;
    std::string lines;
    if (changed || wider || screenFull) {
      lines = line(headerCells(row));
      _linesSinceHeader = 1;
    }
    ++_linesSinceHeader;
    return lines + line(cells);
  }

 private:
  // Makes the columns wide enough; returns whether one of them was not.
  bool widen(const Cells& cells) {
    bool wider = false;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::size_t wanted = std::min(cells[i].content.columns, mostColumns);
      wider = wider || wanted > _columns[i];
      _columns[i] = std::max(_columns[i], wanted);
    }
    return wider;
  }

  std::string line(const Cells& cells) const {
    std::string text;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      const std::size_t taken = std::min(cells[i].content.columns, _columns[i]);
      const std::string blanks(_columns[i] - taken, ' ');
      if (i > 0) text += "  ";
      text += cells[i].alignRight ? blanks + cells[i].content.text : cells[i].content.text + blanks;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
  }

  std::size_t _screenLines;
  std::size_t _linesSinceHeader = 0;
  std::vector<std::string> _names;
  std::vector<std::size_t> _columns;  // widths, of the time, the handle and the attributes
};

}  // namespace

std::unique_ptr<RowWriter> makeTableWriter(std::size_t screenLines) {
  return std::make_unique<TableWriter>(screenLines);
}

}  // namespace tools
