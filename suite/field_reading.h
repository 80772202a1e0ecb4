// field_reading.h: finds the fields of a received message, whatever is in it. ZOR0_ExtractDataField
// turns values to host order in place; who has to pass a message on unchanged reads it with this.
#ifndef SUITE_FIELD_READING_H
#define SUITE_FIELD_READING_H

#include <string_view>

#include "suite/field_writing.h"
#include "suite/fields.h"

namespace suite {

// The fields of a message, behind its length word: what lies beyond that word, or was not received,
// is left out.
inline std::string_view fieldsOf(std::string_view received) {
  if (received.size() < ZOR0_LENGTH_WORD_SIZE) return {};
  const std::size_t stated = ZOR0_MessageLength(received.data());
  if (stated < ZOR0_LENGTH_WORD_SIZE) return {};
  return received.substr(0, stated).substr(ZOR0_LENGTH_WORD_SIZE);
}

// Whether `value` can be the value of a field of this layout.
inline bool isWellFormed(ZOR0_FieldLayout layout, std::string_view value) {
  switch (layout) {
    case ZOR0_FieldLayout::fixed16:
      return value.size() == sizeof(std::uint16_t);
    case ZOR0_FieldLayout::fixed32:
      return value.size() == sizeof(std::uint32_t);
    case ZOR0_FieldLayout::text:
      return value.find('\0') != std::string_view::npos;
    case ZOR0_FieldLayout::attributeValue:
      return !value.empty();
    case ZOR0_FieldLayout::bytes:
    case ZOR0_FieldLayout::unknown:
      break;
  }
  return true;
}

struct ReceivedField {
  short type = 0;
  ZOR0_FieldLayout layout = ZOR0_FieldLayout::unknown;
  std::string_view value;  // as it came
};

// Takes the first field off `fields`. Returns false when none is left or it is malformed; nothing
// is left then: what follows a bad field cannot be told apart any more.
inline bool takeField(std::string_view* fields, ReceivedField* field) {
  const std::string_view left = *fields;
  *fields = {left.data() + left.size(), 0};
  if (left.size() < ZOR0_FIELD_HEADER_SIZE) return false;
  const std::uint32_t count = ntohl(load<std::uint32_t>(left.data() + sizeof(std::uint16_t)));
  if (count > left.size() - ZOR0_FIELD_HEADER_SIZE || count > INT32_MAX) return false;
  field->type = static_cast<short>(ntohs(load<std::uint16_t>(left.data())));
  field->layout = layoutOf(field->type);
  field->value = left.substr(ZOR0_FIELD_HEADER_SIZE, count);
  if (!isWellFormed(field->layout, field->value)) return false;
  *fields = left.substr(ZOR0_FIELD_HEADER_SIZE + count);
  return true;
}

}  // namespace suite

#endif  // SUITE_FIELD_READING_H
