#include "tools/record_writer.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/common/csv_field.h"
#include "tools/common/printable.h"

namespace tools {
namespace {

using Json = nlohmann::ordered_json;  // members stay in the order of the columns

using Values = std::vector<std::string>;
using Columns = std::vector<RecordColumn>;

Values namesOf(const Columns& columns) {
  Values names;
  for (const RecordColumn& column : columns) names.push_back(column.name);
  return names;
}

// What two of the formats share: a header line before the first record.
class LineWriter : public RecordWriter {
 public:
  explicit LineWriter(Columns columns) : _columns(std::move(columns)) {}

  std::string format(const Values& values) final {
    std::string lines;
    if (std::exchange(_isFirst, false)) lines = line(namesOf(_columns));
    return lines + line(values);
  }

 protected:
  virtual std::string line(const Values& values) const = 0;
  const Columns _columns;

 private:
  bool _isFirst = true;
};

class TableRecordWriter : public LineWriter {
 public:
  using LineWriter::LineWriter;

 protected:
  std::string line(const Values& values) const override {
    std::string text;
    for (std::size_t i = 0; i < _columns.size(); ++i) {
      const PrintableText cell = printable(values[i]);
      const std::size_t width = std::max(_columns[i].width, _columns[i].name.size());
      const std::string blanks(width - std::min(width, cell.columns), ' ');
      if (i > 0) text += "  ";
      text += _columns[i].isNumber ? blanks + cell.text : cell.text + blanks;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
  }
};

class CsvRecordWriter : public LineWriter {
 public:
  using LineWriter::LineWriter;

 protected:
  std::string line(const Values& values) const override {
    std::string text;
    for (const std::string& value : values) text += (text.empty() ? "" : ",") + csvField(value);
    return text + "\n";
  }
};

class JsonRecordWriter : public RecordWriter {
 public:
  explicit JsonRecordWriter(Columns columns) : _columns(std::move(columns)) {}

  std::string format(const Values& values) override {
    Json object = Json::object();
    for (std::size_t i = 0; i < _columns.size(); ++i)
      object[_columns[i].name] = valueOf(_columns[i], values[i]);
    return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  }

 private:
  // A number that is none, from a server that does not keep to the format, stays text.
  static nlohmann::ordered_json valueOf(const RecordColumn& column, const std::string& value) {
    if (column.isNumber) {
      auto number = nlohmann::ordered_json::parse(value, nullptr, false);
      if (number.is_number_integer()) return number;
    }
    return value;
  }

  const Columns _columns;
};

}  // namespace

std::unique_ptr<RecordWriter> makeRecordWriter(const std::string& format, Columns columns) {
  if (format == "csv") return std::make_unique<CsvRecordWriter>(std::move(columns));
  if (format == "jsonl") return std::make_unique<JsonRecordWriter>(std::move(columns));
  for (RecordColumn& column : columns)
    for (char& letter : column.name)
      if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  return std::make_unique<TableRecordWriter>(std::move(columns));
}

}  // namespace tools
