#include <csv.h>

#include <deque>
#include <optional>
#include <utility>

#include "tools/common/values.h"
#include "tools/row_reader.h"

namespace tools {
namespace {

using Record = std::vector<std::optional<std::string>>;  // an empty column has no text

// Cuts text into records. Its callbacks are called by C code and do nothing that a row could make
// fail, short of the memory running out.
class CsvParser {
 public:
  CsvParser() { start(); }
  ~CsvParser() { csv_free(&_parser); }
  CsvParser(const CsvParser&) = delete;
  CsvParser& operator=(const CsvParser&) = delete;

  // These return false for quotes in a wrong place.
  bool parse(const std::string& text) {
    return csv_parse(&_parser, text.data(), text.size(), &CsvParser::takeField,
                     &CsvParser::takeRecord, this) == text.size();
  }
  bool finish() {
    return csv_fini(&_parser, &CsvParser::takeField, &CsvParser::takeRecord, this) == 0;
  }

  // What has begun is no record: the next text begins a new one.
  void forget() {
    csv_free(&_parser);
    start();
    _record.clear();
  }

  std::deque<Record> complete;

 private:
  void start() {
    csv_init(&_parser, CSV_STRICT | CSV_STRICT_FINI | CSV_EMPTY_IS_NULL);
    csv_set_space_func(&_parser, [](unsigned char) { return 0; });  // blanks belong to the text
  }
  static void takeField(void* text, std::size_t length, void* self) {
    auto& record = static_cast<CsvParser*>(self)->_record;
    if (text == nullptr)
      record.emplace_back();
    else
      record.emplace_back(std::in_place, static_cast<const char*>(text), length);
  }
  static void takeRecord(int, void* self) {
    auto* records = static_cast<CsvParser*>(self);
    records->complete.push_back(std::exchange(records->_record, {}));
  }

  csv_parser _parser;
  Record _record;
};

class CsvReader : public RowReader {
 public:
  CsvReader(LineInput& input, const suite::RegisteredGroup& group, RowColumns columns)
      : _input(input),
        _group(group),
        _columns(std::move(columns)),
        _whereNamed(_columns.empty() ? " attributes are named in the first line"
                                     : " columns are named") {}

  bool next(InputRow* row) override {
    Record record;
    if (_columns.empty()) {
      if (!nextRecord(&record)) return false;
      readNames(record);
    }
    if (!nextRecord(&record)) return false;
    if (record.size() != _columns.size())
      _input.refuse(_recordLine, std::to_string(record.size()) + " fields, but " +
                                     std::to_string(_columns.size()) + _whereNamed);
    row->lineNumber = _recordLine;
    row->fields.clear();
    for (std::size_t i = 0; i < record.size(); ++i)
      if (record[i]) row->fields.push_back({_columns[i], InputField::Form::csv, *record[i]});
    return true;
  }

 private:
  void readNames(const Record& record) {
    RowColumns columns;
    try {
      for (const auto& name : record)
        resolveAttribute(_group, withoutBlanks(name.value_or("")), &columns);
      _columns = std::move(columns);
    } catch (const BadValue& error) {
      _input.refuse(_recordLine, error.what());
    }
  }

  // Stores the next record, and where it begins in _recordLine.
  bool nextRecord(Record* record) {
    while (_records.complete.empty() && !_ended) readLine();
    if (_records.complete.empty()) return false;
    *record = std::move(_records.complete.front());
    _records.complete.pop_front();
    _recordLine = _firstLine;
    if (_records.complete.empty()) _pendingBytes = 0;
    return true;
  }

  void readLine() try {
    std::string line;
    _ended = !_input.next(&line);
    if (_ended) {
      if (!_records.finish()) _input.refuse(_firstLine, "a quoted field has no closing quote");
      return;
    }
    if (_pendingBytes == 0) _firstLine = _input.lineNumber();
    if (!_records.parse(line)) _input.refuse(_firstLine, "a quote in a wrong place");
    const bool empty = line == "\n" || line == "\r\n";
    if (_pendingBytes > 0 || !empty) _pendingBytes += line.size();
    if (_pendingBytes > maxRowBytes)
      _input.refuse(_firstLine, "the row is longer than " + std::to_string(maxRowBytes) + " bytes");
  } catch (const RefusedLine&) {
    _records.forget();
    _pendingBytes = 0;
    throw;
  }

  LineInput& _input;
  const suite::RegisteredGroup& _group;
  RowColumns _columns;
  const char* _whereNamed;
  CsvParser _records;
  long _firstLine = 0;            // where the record that is being read begins
  long _recordLine = 0;           // where the record that was given last begins
  std::size_t _pendingBytes = 0;  // of a record whose end has not been read
  bool _ended = false;
};

}  // namespace

std::unique_ptr<RowReader> makeCsvReader(LineInput& input, const suite::RegisteredGroup& group,
                                         RowColumns columns) {
  return std::make_unique<CsvReader>(input, group, std::move(columns));
}

}  // namespace tools
