#include "dch/core/attribute_value.h"

#include "dch/core/utf8.h"
#include "suite/field_writing.h"

namespace dch {

namespace {

template <class Number>
AttributeValue number(std::string_view bytes) {
  return {AttributeValue::Kind::number, suite::load<Number>(bytes.data()), {}};
}

}  // namespace

AttributeValue attributeValue(char letter, std::string_view bytes) {
  if (isTextLetter(letter)) {
    const std::string_view text = bytes.substr(0, bytes.find('\0'));
    return {isUtf8(text) ? AttributeValue::Kind::text : AttributeValue::Kind::bytes, 0, text};
  }
  switch (bytes.size()) {
    case sizeof(std::int8_t):
      return number<std::int8_t>(bytes);
    case sizeof(std::int16_t):
      return number<std::int16_t>(bytes);
    case sizeof(std::int32_t):
      return number<std::int32_t>(bytes);
    case sizeof(std::int64_t):
      return number<std::int64_t>(bytes);
    default:
      return {AttributeValue::Kind::bytes, 0, bytes};
  }
}

}  // namespace dch
