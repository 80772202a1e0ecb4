// typed_columns.h: the attributes of a group, and the columns of their values, each of one type.
#ifndef DCH_POSTGRES_TYPED_COLUMNS_H
#define DCH_POSTGRES_TYPED_COLUMNS_H

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "dch/core/attribute_value.h"
#include "dch/store/attribute_columns.h"

namespace dch::pg {

// What decides on the type of a column is the letter with which its attribute comes first. One
// thread.
class TypedColumns {
 public:
  // So many at most. `attributes` stand in the order of the view, `areNumbers` in that of the
  // columns.
  TypedColumns(std::size_t most, std::vector<AttributeColumn> attributes,
               std::vector<bool> areNumbers)
      : _columns(most, std::move(attributes)), _areNumbers(std::move(areNumbers)) {}

  const AttributeColumns& names() const { return _columns; }
  int count() const { return _columns.count(); }
  bool isNumber(int column) const { return _areNumbers[static_cast<std::size_t>(column) - 1]; }

  // See AttributeColumns.
  bool arrange(const std::vector<suite::RegisteredAttribute>& attributes) {
    const bool isChanged = _columns.arrange(attributes);
    for (const suite::RegisteredAttribute& each : attributes) setType(each.name, each.letter);
    return isChanged;
  }
  bool add(std::string_view attribute, char letter) {
    const bool isChanged = _columns.add(attribute);
    setType(attribute, letter);
    return isChanged;
  }

 private:
  // New ones come in the order of their columns.
  void setType(std::string_view attribute, char letter) {
    if (static_cast<std::size_t>(_columns.columnOf(attribute)) == _areNumbers.size() + 1)
      _areNumbers.push_back(!isTextLetter(letter));
  }

  AttributeColumns _columns;
  std::vector<bool> _areNumbers;
};

}  // namespace dch::pg

#endif  // DCH_POSTGRES_TYPED_COLUMNS_H
