#include <csv.h>

#include "tools/row_writer.h"

namespace tools {
namespace {

// Quoted only where a reader needs it: an empty text would read as left out, blanks at the ends as
// nothing.
bool needsQuotes(const std::string& text) {
  return text.empty() || text.find_first_of(",\"\r\n") != std::string::npos ||
         text.front() == ' ' || text.back() == ' ' || text.front() == '\t' || text.back() == '\t';
}

std::string csvField(const std::string& text) {
  if (!needsQuotes(text)) return text;
  std::string field(2 * text.size() + 2, '\0');  // if each character were a quote
  field.resize(csv_write(field.data(), field.size(), text.data(), text.size()));
  return field;
}

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
