#include "suite/fields.h"

#include <arpa/inet.h>

#include <cstring>

#include "suite/field_writing.h"

using suite::load;
using suite::store;

namespace {

struct FieldHeader {
  std::uint16_t type;
  std::uint32_t count;
};

FieldHeader loadHeader(const char* position) {
  return {ntohs(load<std::uint16_t>(position)), ntohl(load<std::uint32_t>(position + 2))};
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
  const ZOR0_FieldLayout layout = suite::layoutOf(type);
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
