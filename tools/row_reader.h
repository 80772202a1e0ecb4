// row_reader.h: rows of an input as they are written, before their values are looked at.
#ifndef TOOLS_ROW_READER_H
#define TOOLS_ROW_READER_H

#include <memory>
#include <string>
#include <vector>

#include "suite/registration.h"
#include "tools/line_input.h"

namespace tools {

struct InputField {
  enum class Form { csv, jsonNumber, jsonText };
  const suite::RegisteredAttribute* attribute;  // of the group that the reader was given
  Form form;
  std::string text;
};

struct InputRow {
  long lineNumber = 0;  // where the row begins
  std::vector<InputField> fields;
};

// The attributes that the columns of a row stand for.
using RowColumns = std::vector<const suite::RegisteredAttribute*>;

// An attribute that a row names twice, or that is not of the group, and a row that breaks the
// format's syntax end in a RefusedLine.
class RowReader {
 public:
  virtual ~RowReader() = default;

  // Stores the next row, which has no field for what was left out of it. Returns false at the end
  // of the input. Throws what LineInput::next throws. After a RefusedLine it goes on with the line
  // behind.
  virtual bool next(InputRow* row) = 0;
};

// Comma-separated values as in RFC 4180. Without `columns` the first line names the attributes;
// empty lines are skipped; a column left empty is left out of the row, and "" is an empty text.
// Blanks around a name do not count. The reader keeps references to its arguments.
std::unique_ptr<RowReader> makeCsvReader(LineInput& input, const suite::RegisteredGroup& group,
                                         RowColumns columns = {});

// A row per line, its columns between blanks and tabs; empty lines are skipped. The reader keeps a
// reference to the input.
std::unique_ptr<RowReader> makeWordsReader(LineInput& input, RowColumns columns);

// A JSON object per line, whose members are numbers and texts; empty lines are skipped; null is
// left out of the row. The reader keeps references to its arguments.
std::unique_ptr<RowReader> makeJsonLinesReader(LineInput& input,
                                               const suite::RegisteredGroup& group);

// The attribute of that name. Throws BadValue when the group has none, or when `taken` says that
// the row names it for the second time.
const suite::RegisteredAttribute* resolveAttribute(const suite::RegisteredGroup& group,
                                                   std::string_view name, RowColumns* taken);

}  // namespace tools

#endif  // TOOLS_ROW_READER_H
