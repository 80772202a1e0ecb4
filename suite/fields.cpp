#include "suite/fields.h"

#include <arpa/inet.h>

#include <cstring>

#include "suite/field_reading.h"

using suite::load;
using suite::store;

ZOR0_FieldLayout ZOR0_LayoutOfField(short type) {
  return suite::layoutOf(type);
}

std::size_t ZOR0_FieldSize(short type, const void* value, ZORA_Long length) {
  return suite::fieldSize(type, value, length);
}

ZORA_Long ZOR0_FormatDataField(void* message, void* position, short type, const void* value,
                               ZORA_Long length, const char* attrType) {
  const std::size_t size = suite::fieldSize(type, value, length);
  if (size == 0) return 0;
  auto* const out = static_cast<char*>(position);
  suite::writeField(out, size, type, value, attrType);
  suite::storeMessageLength(message,
                            static_cast<std::size_t>(out - static_cast<char*>(message)) + size);
  return static_cast<ZORA_Long>(size);
}

std::uint32_t ZOR0_MessageLength(const void* message) {
  return ntohl(load<std::uint32_t>(message));
}

ZOR0_FieldCursor::ZOR0_FieldCursor(void* message, std::size_t received)
    : _position(static_cast<char*>(message)), _end(_position) {
  if (message == nullptr) return;
  const std::string_view fields = suite::fieldsOf({_position, received});
  if (fields.data() == nullptr) return;
  _position += ZOR0_LENGTH_WORD_SIZE;
  _end = _position + fields.size();
}

short ZOR0_ExtractDataField(ZOR0_FieldCursor* cursor, void** value, ZORA_Long* length,
                            char* attrType) {
  *value = nullptr;
  *length = 0;
  char* const header = cursor->_position;
  std::string_view left(header, static_cast<std::size_t>(cursor->_end - header));
  suite::ReceivedField field;
  const bool isThere = suite::takeField(&left, &field);
  cursor->_position = cursor->_end - left.size();
  if (!isThere) return 0;

  char* start = header + ZOR0_FIELD_HEADER_SIZE;
  std::size_t size = field.value.size();
  switch (field.layout) {
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
  return field.type;
}
