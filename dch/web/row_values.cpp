#include "dch/web/row_values.h"

#include <unordered_map>

#include "dch/core/row_message.h"

namespace dch {

std::vector<NamedValue> valuesOf(std::string_view message) {
  std::vector<NamedValue> values;
  std::unordered_map<std::string_view, std::size_t> places;
  RowMessage row(message);
  RowMessage::Attribute attribute;
  while (row.next(&attribute)) {
    const AttributeValue value = attributeValue(attribute.letter, attribute.value);
    const auto [known, isNew] = places.emplace(attribute.name, values.size());
    if (isNew)
      values.push_back({attribute.name, value});
    else
      values[known->second].value = value;
  }
  return values;
}

}  // namespace dch
