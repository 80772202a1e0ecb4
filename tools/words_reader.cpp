#include <utility>

#include "tools/row_reader.h"

namespace tools {
namespace {

constexpr char blanks[] = " \t\r\n";

std::vector<std::string> wordsOf(const std::string& line) {
  std::vector<std::string> words;
  for (std::size_t start = 0;
       (start = line.find_first_not_of(blanks, start)) != std::string::npos;) {
    const std::size_t end = line.find_first_of(blanks, start);
    words.push_back(line.substr(start, end - start));
    start = end;
  }
  return words;
}

class WordsReader : public RowReader {
 public:
  WordsReader(LineInput& input, RowColumns columns) : _input(input), _columns(std::move(columns)) {}

  bool next(InputRow* row) override {
    std::vector<std::string> words;
    for (std::string line; words.empty(); words = wordsOf(line))
      if (!_input.next(&line)) return false;
    row->lineNumber = _input.lineNumber();
    row->fields.clear();
    if (words.size() != _columns.size())
      _input.refuse(row->lineNumber, std::to_string(words.size()) + " words, but " +
                                         std::to_string(_columns.size()) + " columns are named");
    for (std::size_t i = 0; i < words.size(); ++i)
      row->fields.push_back({_columns[i], InputField::Form::csv, std::move(words[i])});
    return true;
  }

 private:
  LineInput& _input;
  RowColumns _columns;
};

}  // namespace

std::unique_ptr<RowReader> makeWordsReader(LineInput& input, RowColumns columns) {
  return std::make_unique<WordsReader>(input, std::move(columns));
}

}  // namespace tools
