#include "dch/core/row_message.h"

#include <limits>

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

}  // namespace dch
