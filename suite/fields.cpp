#include "suite/fields.h"

#include <arpa/inet.h>

#include <cstring>

namespace {

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

struct FieldHeader {
  std::uint16_t type;
  std::uint32_t count;
};

FieldHeader loadHeader(const char* position) {
  return {ntohs(load<std::uint16_t>(position)), ntohl(load<std::uint32_t>(position + 2))};
}

void storeHeader(char* position, const FieldHeader& header) {
  store(position, htons(header.type));
  store(position + 2, htonl(header.count));
}

std::size_t valueSize(ZOR0_FieldLayout layout, const void* value, ZORA_Long length) {
  const std::size_t given = value != nullptr && length > 0 ? static_cast<std::size_t>(length) : 0;
  switch (layout) {
    case ZOR0_FieldLayout::fixed16:
      return sizeof(std::uint16_t);
    case ZOR0_FieldLayout::fixed32:
      return sizeof(std::uint32_t);
    case ZOR0_FieldLayout::text:
      return value != nullptr ? std::strlen(static_cast<const char*>(value)) + 1 : 1;
    case ZOR0_FieldLayout::bytes:
      return given;
    case ZOR0_FieldLayout::attributeValue:
      return 1 + given;
    case ZOR0_FieldLayout::unknown:
      break;
  }
  return 0;
}

// Whether `count` bytes can be the value of a field of this layout.
bool isWellFormed(ZOR0_FieldLayout layout, const char* value, std::size_t count) {
  switch (layout) {
    case ZOR0_FieldLayout::fixed16:
      return count == sizeof(std::uint16_t);
    case ZOR0_FieldLayout::fixed32:
      return count == sizeof(std::uint32_t);
    case ZOR0_FieldLayout::text:
      return std::memchr(value, '\0', count) != nullptr;
    case ZOR0_FieldLayout::attributeValue:
      return count >= 1;
    case ZOR0_FieldLayout::bytes:
    case ZOR0_FieldLayout::unknown:
      break;
  }
  return true;
}

}  // namespace

ZOR0_FieldLayout ZOR0_LayoutOfField(short type) {
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

std::size_t ZOR0_FieldSize(short type, const void* value, ZORA_Long length) {
  const ZOR0_FieldLayout layout = ZOR0_LayoutOfField(type);
  if (layout == ZOR0_FieldLayout::unknown) return 0;
  return ZOR0_FIELD_HEADER_SIZE + valueSize(layout, value, length);
}

ZORA_Long ZOR0_FormatDataField(void* message, void* position, short type, const void* value,
                               ZORA_Long length, const char* attrType) {
  const ZOR0_FieldLayout layout = ZOR0_LayoutOfField(type);
  if (layout == ZOR0_FieldLayout::unknown) return 0;
  const std::size_t size = valueSize(layout, value, length);
  char* out = static_cast<char*>(position);
  storeHeader(out, {static_cast<std::uint16_t>(type), static_cast<std::uint32_t>(size)});
  out += ZOR0_FIELD_HEADER_SIZE;

  switch (layout) {
    case ZOR0_FieldLayout::fixed16:
      store(out, htons(value != nullptr ? load<std::uint16_t>(value) : std::uint16_t{0}));
      break;
    case ZOR0_FieldLayout::fixed32:
      store(out, htonl(value != nullptr ? load<std::uint32_t>(value) : std::uint32_t{0}));
      break;
    case ZOR0_FieldLayout::attributeValue:
      *out = attrType != nullptr ? *attrType : '\0';
      if (size > 1) std::memcpy(out + 1, value, size - 1);
      break;
    case ZOR0_FieldLayout::text:
    case ZOR0_FieldLayout::bytes:
    case ZOR0_FieldLayout::unknown:
      if (value == nullptr)
        std::memset(out, 0, size);
      else
        std::memcpy(out, value, size);
  }

  out += size;
  store(message, htonl(static_cast<std::uint32_t>(out - static_cast<char*>(message))));
  return static_cast<ZORA_Long>(ZOR0_FIELD_HEADER_SIZE + size);
}

std::uint32_t ZOR0_MessageLength(const void* message) {
  return ntohl(load<std::uint32_t>(message));
}

ZOR0_FieldCursor::ZOR0_FieldCursor(void* message, std::size_t received)
    : _position(static_cast<char*>(message)), _end(_position) {
  if (message == nullptr || received < ZOR0_LENGTH_WORD_SIZE) return;
  const std::size_t stated = ZOR0_MessageLength(message);
  if (stated < ZOR0_LENGTH_WORD_SIZE) return;
  _end = _position + (stated < received ? stated : received);
  _position += ZOR0_LENGTH_WORD_SIZE;
}

short ZOR0_ExtractDataField(ZOR0_FieldCursor* cursor, void** value, ZORA_Long* length,
                            char* attrType) {
  *value = nullptr;
  *length = 0;
  char* const header = cursor->_position;
  const auto left = static_cast<std::size_t>(cursor->_end - header);
  cursor->_position = cursor->_end;  // what follows a bad field cannot be told apart any more
  if (left < ZOR0_FIELD_HEADER_SIZE) return 0;

  const auto [typeCode, count] = loadHeader(header);
  if (count > left - ZOR0_FIELD_HEADER_SIZE || count > INT32_MAX) return 0;
  const auto type = static_cast<short>(typeCode);
  const ZOR0_FieldLayout layout = ZOR0_LayoutOfField(type);
  char* start = header + ZOR0_FIELD_HEADER_SIZE;
  if (!isWellFormed(layout, start, count)) return 0;
  cursor->_position = start + count;

  std::size_t size = count;
  switch (layout) {
    case ZOR0_FieldLayout::fixed16:
      store(start, ntohs(load<std::uint16_t>(start)));
      break;
    case ZOR0_FieldLayout::fixed32:
      store(start, ntohl(load<std::uint32_t>(start)));
      break;
    case ZOR0_FieldLayout::attributeValue:
      if (attrType != nullptr) *attrType = *start;
      ++start;
      --size;
      break;
    case ZOR0_FieldLayout::text:
    case ZOR0_FieldLayout::bytes:
    case ZOR0_FieldLayout::unknown:
      break;
  }
  *value = start;
  *length = static_cast<ZORA_Long>(size);
  return type;
}
