#include "dch/store/row_message.h"

#include <limits>

#include "zordchcl/messages.h"

namespace dch {

namespace {

bool isTextLetter(char letter) {
  return letter == 'D' || letter == 'R' || letter == 'T';
}

template <class Number>
void bindNumber(sqlite::Statement& statement, int parameter, std::string_view bytes) {
  statement.bind(parameter, suite::load<Number>(bytes.data()));
}

}  // namespace

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

void bindValue(sqlite::Statement& statement, int parameter,
               const RowMessage::Attribute& attribute) {
  const std::string_view bytes = attribute.value;
  if (isTextLetter(attribute.letter)) {
    statement.bindText(parameter, bytes.substr(0, bytes.find('\0')));
    return;
  }
  switch (bytes.size()) {
    case sizeof(std::int8_t):
      return bindNumber<std::int8_t>(statement, parameter, bytes);
    case sizeof(std::int16_t):
      return bindNumber<std::int16_t>(statement, parameter, bytes);
    case sizeof(std::int32_t):
      return bindNumber<std::int32_t>(statement, parameter, bytes);
    case sizeof(std::int64_t):
      return bindNumber<std::int64_t>(statement, parameter, bytes);
    default:
      statement.bindBytes(parameter, bytes);
  }
}

}  // namespace dch
