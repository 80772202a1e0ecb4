// rows_text.h: kept rows as text.
#ifndef DCH_WEB_ROWS_TEXT_H
#define DCH_WEB_ROWS_TEXT_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/attribute_value.h"
#include "dch/core/message.h"

namespace dch {

// Writes rows one after the other: first the columns, then for each row as many values, then the
// end. One thread.
class RowsText {
 public:
  virtual ~RowsText() = default;

  virtual void columns(const std::vector<std::string>& names) = 0;

  virtual void beginRow() = 0;
  virtual void time(Time time) = 0;  // as text
  virtual void value(const AttributeValue& value) = 0;
  virtual void real(double value) = 0;
  virtual void endRow() = 0;

  virtual void end() = 0;

  virtual std::size_t size() const = 0;
  // What was written since the last call.
  virtual std::string take() = 0;

  virtual const char* type() const = 0;
};

// {"columns": [...], "rows": [[...], ...]}
std::unique_ptr<RowsText> makeJsonRows();

// Comma-separated values as in RFC 4180, with a header. What a row does not have is empty, and an
// empty text is "".
std::unique_ptr<RowsText> makeCsvRows();

}  // namespace dch

#endif  // DCH_WEB_ROWS_TEXT_H
