#include "tools/row_writer.h"
#include "tools/text_table.h"

namespace tools {
namespace {

class TableWriter : public RowWriter {
 public:
  explicit TableWriter(std::size_t screenLines) : _table(screenLines) {}

  std::string format(const std::string& time, const PushedRow& row) override {
    std::vector<TableCell> cells = {{"TIME", time}, {"HANDLE", std::to_string(row.handle), true}};
    for (const PushedValue& value : row.values) {
      const bool isNumber = value.value.kind == DecodedValue::Kind::number;
      cells.push_back({value.name, value.value.text, isNumber, isNumber ? numberWidth : 0});
    }
    return _table.format(cells);
  }

 private:
  TextTable _table;
};

}  // namespace

std::unique_ptr<RowWriter> makeTableWriter(std::size_t screenLines) {
  return std::make_unique<TableWriter>(screenLines);
}

}  // namespace tools
