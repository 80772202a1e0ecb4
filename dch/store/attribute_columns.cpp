#include "dch/store/attribute_columns.h"

#include <set>
#include <string>
#include <utility>

namespace dch {

AttributeColumns::AttributeColumns(std::size_t most, std::vector<AttributeColumn> attributes)
    : _most(most), _attributes(std::move(attributes)) {
  for (const AttributeColumn& each : _attributes) _columns.emplace(each.name, each.column);
}

int AttributeColumns::columnOf(std::string_view attribute) const {
  const auto known = _columns.find(attribute);
  return known != _columns.end() ? known->second : 0;
}

bool AttributeColumns::arrange(const std::vector<suite::RegisteredAttribute>& attributes) {
  std::vector<AttributeColumn> order;
  for (const suite::RegisteredAttribute& attribute : attributes) {
    enter(attribute.name);
    if (const int column = columnOf(attribute.name); column != 0)
      order.push_back({attribute.name, column});
  }
  std::set<int> named;
  for (const AttributeColumn& each : order) named.insert(each.column);
  for (const AttributeColumn& each : _attributes)
    if (!named.contains(each.column)) order.push_back(each);
  if (order == _attributes) return false;
  _attributes = std::move(order);
  return true;
}

bool AttributeColumns::add(std::string_view attribute) {
  if (!enter(attribute)) return false;
  _attributes.push_back({std::string(attribute), count()});
  return true;
}

// Returns whether it is new, and has a column.
bool AttributeColumns::enter(std::string_view attribute) {
  if (_columns.size() >= _most || _columns.contains(attribute)) return false;
  return _columns.emplace(attribute, count() + 1).second;
}

}  // namespace dch
