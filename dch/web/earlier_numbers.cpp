#include "dch/web/earlier_numbers.h"

#include <algorithm>
#include <new>
#include <unordered_set>

#include "dch/core/attribute_value.h"
#include "dch/core/row_message.h"

namespace dch {

namespace {

std::size_t countAttributes(std::string_view message) {
  RowMessage row(message);
  RowMessage::Attribute attribute;
  std::size_t count = 0;
  while (row.next(&attribute)) ++count;
  return count;
}

// In the same order.
bool haveSameNames(std::string_view message, std::string_view other) {
  RowMessage left(message), right(other);
  RowMessage::Attribute one, another;
  for (;;) {
    const bool isThere = left.next(&one);
    if (isThere != right.next(&another)) return false;
    if (!isThere) return true;
    if (one.name != another.name) return false;
  }
}

void set(std::vector<NamedNumber>* numbers, std::string_view name, std::int64_t value) {
  const auto known = std::find_if(numbers->begin(), numbers->end(),
                                  [&](const NamedNumber& each) { return each.name == name; });
  if (known != numbers->end())
    known->value = value;
  else
    numbers->push_back({std::string(name), value});
}

}  // namespace

void EarlierNumbers::take(const Source& source, std::string_view message,
                          std::string_view former) noexcept {
  if (countAttributes(message) >= source.group->attributes.size()) return forget(source.handle);
  if (former.empty() || haveSameNames(message, former)) return;
  try {
    std::vector<NamedNumber>& numbers = _all[source.handle];
    merge(&numbers, message, former);
    if (numbers.empty()) forget(source.handle);
  } catch (const std::bad_alloc&) {
    forget(source.handle);
  }
}

void EarlierNumbers::merge(std::vector<NamedNumber>* numbers, std::string_view message,
                           std::string_view former) {
  std::unordered_set<std::string_view> present;
  RowMessage::Attribute attribute;
  for (RowMessage row(message); row.next(&attribute);) present.insert(attribute.name);
  std::erase_if(*numbers, [&](const NamedNumber& each) { return present.contains(each.name); });
  for (RowMessage row(former); row.next(&attribute);) {
    const AttributeValue value = attributeValue(attribute.letter, attribute.value);
    if (value.kind == AttributeValue::Kind::number && !present.contains(attribute.name))
      set(numbers, attribute.name, value.number);
  }
}

const std::vector<NamedNumber>* EarlierNumbers::find(ZORA_Long handle) const {
  const auto known = _all.find(handle);
  return known != _all.end() ? &known->second : nullptr;
}

}  // namespace dch
