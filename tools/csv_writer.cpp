#include "tools/common/csv_field.h"
#include "tools/row_writer.h"

namespace tools {
namespace {

class CsvWriter : public RowWriter {
 public:
  std::string format(const std::string& time, const PushedRow& row) override {
    std::string lines;
    if (std::vector<std::string> names = attributeNames(row); names != _names || _first) {
      lines = _first ? "" : "\n";
      lines += "time,handle";
      for (const std::string& name : names) lines += "," + csvField(name);
      lines += "\n";
      _names = std::move(names);
      _first = false;
    }
    lines += time + "," + std::to_string(row.handle);
    for (const PushedValue& value : row.values) lines += "," + csvField(value.value.text);
    return lines + "\n";
  }

 private:
  bool _first = true;
  std::vector<std::string> _names;
};

}  // namespace

std::unique_ptr<RowWriter> makeCsvWriter() {
  return std::make_unique<CsvWriter>();
}

}  // namespace tools
