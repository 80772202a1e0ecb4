#include "dch/field_reader.h"

#include <arpa/inet.h>

#include <cstring>

namespace dch {

namespace {

// Reading a fixed-width value turns it to host order where it lies; this puts it back.
void restoreNetworkOrder(short type, void* value) {
  switch (ZOR0_LayoutOfField(type)) {
    case ZOR0_FieldLayout::fixed16: {
      std::uint16_t number;
      std::memcpy(&number, value, sizeof number);
      number = htons(number);
      std::memcpy(value, &number, sizeof number);
      break;
    }
    case ZOR0_FieldLayout::fixed32: {
      std::uint32_t number;
      std::memcpy(&number, value, sizeof number);
      number = htonl(number);
      std::memcpy(value, &number, sizeof number);
      break;
    }
    case ZOR0_FieldLayout::text:
    case ZOR0_FieldLayout::bytes:
    case ZOR0_FieldLayout::attributeValue:
    case ZOR0_FieldLayout::unknown:
      break;
  }
}

}  // namespace

bool FieldReader::readShort(short type, short* value) {
  void* field;
  ZORA_Long length;
  if (!next(type, &field, &length)) return false;
  std::uint16_t number;
  std::memcpy(&number, field, sizeof number);
  *value = static_cast<short>(ntohs(number));
  return true;
}

bool FieldReader::readLong(short type, ZORA_Long* value) {
  void* field;
  ZORA_Long length;
  if (!next(type, &field, &length)) return false;
  std::uint32_t number;
  std::memcpy(&number, field, sizeof number);
  *value = static_cast<ZORA_Long>(ntohl(number));
  return true;
}

bool FieldReader::readText(short type, std::size_t maxLength, std::string_view* value) {
  void* field;
  ZORA_Long length;
  if (!next(type, &field, &length)) return false;
  *value = static_cast<const char*>(field);
  return value->size() <= maxLength;
}

bool FieldReader::readResponse(std::string_view* value) {
  void* field;
  ZORA_Long length;
  if (!next(DCH_response, &field, &length)) return false;
  *value = {static_cast<const char*>(field), static_cast<std::size_t>(length)};
  return true;
}

bool FieldReader::readAttributeValue(char* letter, ZORA_Long* length) {
  void* field;
  return next(DCH_attrValue, &field, length, letter);
}

bool FieldReader::next(short type, void** value, ZORA_Long* length, char* letter) {
  const short found = ZOR0_ExtractDataField(&_cursor, value, length, letter);
  if (*value != nullptr) restoreNetworkOrder(found, *value);
  return found == type;
}

}  // namespace dch
