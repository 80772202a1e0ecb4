// row_values.h: the values of a row as it came.
#ifndef DCH_WEB_ROW_VALUES_H
#define DCH_WEB_ROW_VALUES_H

#include <string_view>
#include <vector>

#include "dch/core/attribute_value.h"

namespace dch {

struct NamedValue {
  std::string_view name;
  AttributeValue value;
};

// In the order of the message, of which they are parts; of an attribute that it names twice the
// last value, in the place of the first one.
std::vector<NamedValue> valuesOf(std::string_view message);

}  // namespace dch

#endif  // DCH_WEB_ROW_VALUES_H
