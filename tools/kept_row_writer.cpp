#include "tools/kept_row_writer.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "tools/text_table.h"

namespace tools {
namespace {

// The columns before the attributes.
enum FixedColumn : std::size_t { timeColumn, timeUsColumn, sourceColumn, handleColumn, codeColumn };
constexpr std::size_t firstAttribute = codeColumn + 1;

class KeptTableWriter : public KeptRowWriter {
 public:
  explicit KeptTableWriter(std::size_t screenLines) : _table(screenLines) {}

  void columns(const std::vector<std::string>& names) override {
    if (names.size() < firstAttribute) throw MalformedRows("no columns of rows");
    _shown = {timeColumn, sourceColumn};
    for (std::size_t i = firstAttribute; i < names.size(); ++i) _shown.push_back(i);
    _cells.clear();
    for (const std::size_t column : _shown) _cells.push_back({names[column], {}});
    _cells[0].name = "TIME";
    _cells[1].name = "SOURCE";
  }

  std::string format(const std::vector<KeptValue>& values) override {
    for (std::size_t i = 0; i < _shown.size(); ++i) {
      const KeptValue& value = values[_shown[i]];
      _cells[i].text = value.text;
      // What is missing stands where the column's numbers do.
      if (value.kind != KeptValue::Kind::none)
        _cells[i].isNumber = value.kind == KeptValue::Kind::number;
      _cells[i].leastWidth = _cells[i].isNumber ? numberWidth : 0;
    }
    return _table.format(_cells);
  }

 private:
  std::vector<std::size_t> _shown;
  std::vector<TableCell> _cells;
  TextTable _table;
};

std::string jsonText(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

class KeptJsonLinesWriter : public KeptRowWriter {
 public:
  void columns(const std::vector<std::string>& names) override {
    _keys.clear();
    for (const std::string& each : names)
      _keys.push_back((_keys.empty() ? "{" : ",") + jsonText(each) + ":");
  }

  std::string format(const std::vector<KeptValue>& values) override {
    std::string line;
    for (std::size_t i = 0; i < values.size(); ++i) {
      line += _keys[i];
      if (values[i].kind == KeptValue::Kind::none)
        line += "null";
      else
        line +=
            values[i].kind == KeptValue::Kind::number ? values[i].text : jsonText(values[i].text);
    }
    return line + "}\n";
  }

 private:
  std::vector<std::string> _keys;  // each with what stands around it
};

}  // namespace

std::unique_ptr<KeptRowWriter> makeKeptTableWriter(std::size_t screenLines) {
  return std::make_unique<KeptTableWriter>(screenLines);
}

std::unique_ptr<KeptRowWriter> makeKeptJsonLinesWriter() {
  return std::make_unique<KeptJsonLinesWriter>();
}

std::string CsvRecords::take(std::string_view piece) {
  std::size_t end = 0;
  for (std::size_t i = 0; i < piece.size(); ++i) {
    if (piece[i] == '"') _isQuoted = !_isQuoted;
    if (piece[i] != '\n' || _isQuoted) continue;
    ++_count;
    end = i + 1;
  }
  _rest += piece.substr(0, end);
  std::string records = end > 0 ? std::exchange(_rest, {}) : "";
  _rest += piece.substr(end);
  return records;
}

}  // namespace tools
