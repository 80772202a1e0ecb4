// field_writing.h: what writing a field takes, for who knows its type when compiling: every
// attribute of every row is written this way. Everybody else calls ZOR0_FormatDataField.
#ifndef SUITE_FIELD_WRITING_H
#define SUITE_FIELD_WRITING_H

#include <arpa/inet.h>

#include <cstring>

#include "suite/fields.h"

namespace suite {

// Values lie anywhere in a message, so they are copied, never addressed as what they are.
template <class Integer>
Integer load(const void* position) {
  Integer value;
  std::memcpy(&value, position, sizeof value);
  return value;
}

template <class Integer>
void store(void* position, Integer value) {
  std::memcpy(position, &value, sizeof value);
}

constexpr ZOR0_FieldLayout layoutOf(short type) {
  switch (static_cast<ZOR0_FieldType>(type)) {
    case DCH_requestType:
    case DCH_dataCode:
    case DCH_actionType:
      return ZOR0_FieldLayout::fixed16;
    case DCH_status:
    case DCH_handle:
    case DCH_actionID:
    case DCH_currentTime:
    case DCH_peltaObject:
      return ZOR0_FieldLayout::fixed32;
    case DCH_applName:
    case DCH_applKey:
    case DCH_sourceName:
    case DCH_attrGroup:
    case DCH_tableName:
    case DCH_attrName:
    case DCH_actionName:
    case DCH_actionParms:
    case DCH_actionOwner:
      return ZOR0_FieldLayout::text;
    case DCH_response:
      return ZOR0_FieldLayout::bytes;
    case DCH_attrValue:
      return ZOR0_FieldLayout::attributeValue;
  }
  return ZOR0_FieldLayout::unknown;
}

// As ZOR0_FieldSize.
inline std::size_t fieldSize(short type, const void* value, ZORA_Long length) {
  const std::size_t given = value != nullptr && length > 0 ? static_cast<std::size_t>(length) : 0;
  switch (layoutOf(type)) {
    case ZOR0_FieldLayout::fixed16:
      return ZOR0_FIELD_HEADER_SIZE + sizeof(std::uint16_t);
    case ZOR0_FieldLayout::fixed32:
      return ZOR0_FIELD_HEADER_SIZE + sizeof(std::uint32_t);
    case ZOR0_FieldLayout::text:
      return ZOR0_FIELD_HEADER_SIZE +
             (value != nullptr ? std::strlen(static_cast<const char*>(value)) + 1 : 1);
    case ZOR0_FieldLayout::bytes:
      return ZOR0_FIELD_HEADER_SIZE + given;
    case ZOR0_FieldLayout::attributeValue:
      return ZOR0_FIELD_HEADER_SIZE + 1 + given;
    case ZOR0_FieldLayout::unknown:
      break;
  }
  return 0;
}

// Writes a field of a known type, whose fieldSize is `size`.
inline void writeField(char* out, std::size_t size, short type, const void* value,
                       const char* attrType) {
  const std::size_t count = size - ZOR0_FIELD_HEADER_SIZE;
  store(out, htons(static_cast<std::uint16_t>(type)));
  store(out + sizeof(std::uint16_t), htonl(static_cast<std::uint32_t>(count)));
  out += ZOR0_FIELD_HEADER_SIZE;
  switch (layoutOf(type)) {
    case ZOR0_FieldLayout::fixed16:
      store(out, htons(value != nullptr ? load<std::uint16_t>(value) : std::uint16_t{0}));
      break;
    case ZOR0_FieldLayout::fixed32:
      store(out, htonl(value != nullptr ? load<std::uint32_t>(value) : std::uint32_t{0}));
      break;
    case ZOR0_FieldLayout::attributeValue:
      *out = attrType != nullptr ? *attrType : '\0';
      if (count > 1) std::memcpy(out + 1, value, count - 1);
      break;
    case ZOR0_FieldLayout::text:
    case ZOR0_FieldLayout::bytes:
    case ZOR0_FieldLayout::unknown:
      if (value == nullptr)
        std::memset(out, 0, count);
      else
        std::memcpy(out, value, count);
  }
}

inline void storeMessageLength(void* message, std::size_t length) {
  store(message, htonl(static_cast<std::uint32_t>(length)));
}

}  // namespace suite

#endif  // SUITE_FIELD_WRITING_H
