#include "dch/core/row_message.h"

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>
#include <limits>

#include "dch/core/rows_out.h"
#include "suite/registration.h"
#include "zordchcl/messages.h"

namespace dch {

RowMessage::RowMessage(std::string_view message) : _fields(message) {
  short request = 0;
  ZORA_Long handle = 0;
  // One after the other: they stand in this order.
  if (_fields.readShort(DCH_requestType, &request) && _fields.readLong(DCH_handle, &handle))
    _fields.readShort(DCH_dataCode, &_code);
}

bool RowMessage::next(Attribute* attribute) {
  return _fields.readText(DCH_attrName, std::numeric_limits<std::size_t>::max(),
                          &attribute->name) &&
         _fields.readAttributeValue(&attribute->letter, &attribute->value);
}

bool readRow(std::string_view message, std::vector<std::string_view>* attributes) {
  FieldReader fields(message);
  short request = 0;
  short code = 0;
  ZORA_Long handle = 0;
  if (message.size() > maxDatagramBytes || message.size() < ZOR0_LENGTH_WORD_SIZE ||
      ZOR0_MessageLength(message.data()) != message.size() ||
      !fields.readShort(DCH_requestType, &request) || request != DCH_REQUEST_DATA ||
      !fields.readLong(DCH_handle, &handle) || !fields.readShort(DCH_dataCode, &code))
    return false;
  while (!fields.atEnd()) {
    std::string_view name, value;
    char letter = '\0';
    if (!fields.readText(DCH_attrName, suite::longestName, &name) || name.empty() ||
        !fields.readAttributeValue(&letter, &value))
      return false;
    attributes->push_back(name);
  }
  return true;
}

void setHandle(std::string* message, ZORA_Long handle) {
  // Behind the request's code, which is a field of two bytes.
  constexpr std::size_t place = ZOR0_LENGTH_WORD_SIZE + ZOR0_FIELD_HEADER_SIZE +
                                sizeof(std::uint16_t) + ZOR0_FIELD_HEADER_SIZE;
  const std::uint32_t bytes = htonl(static_cast<std::uint32_t>(handle));
  std::memcpy(message->data() + place, &bytes, sizeof bytes);
}

}  // namespace dch
