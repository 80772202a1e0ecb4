#include "dch/core/field_reader.h"

#include <arpa/inet.h>

namespace dch {

bool FieldReader::readShort(short type, short* value) {
  std::string_view field;
  if (!next(type, &field)) return false;
  *value = static_cast<short>(ntohs(suite::load<std::uint16_t>(field.data())));
  return true;
}

bool FieldReader::readLong(short type, ZORA_Long* value) {
  std::string_view field;
  if (!next(type, &field)) return false;
  *value = static_cast<ZORA_Long>(ntohl(suite::load<std::uint32_t>(field.data())));
  return true;
}

bool FieldReader::readText(short type, std::size_t maxLength, std::string_view* value) {
  std::string_view field;
  if (!next(type, &field)) return false;
  *value = field.substr(0, field.find('\0'));
  return value->size() <= maxLength;
}

bool FieldReader::readResponse(std::string_view* value) {
  return next(DCH_response, value);
}

bool FieldReader::readAttributeValue(char* letter, std::string_view* value) {
  std::string_view field;
  if (!next(DCH_attrValue, &field)) return false;
  *letter = field.front();
  *value = field.substr(1);
  return true;
}

bool FieldReader::next(short type, std::string_view* value) {
  suite::ReceivedField field;
  if (!suite::takeField(&_fields, &field)) return false;
  *value = field.value;
  return field.type == type;
}

}  // namespace dch
