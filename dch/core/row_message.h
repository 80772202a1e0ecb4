// row_message.h: takes the message of a row apart.
#ifndef DCH_CORE_ROW_MESSAGE_H
#define DCH_CORE_ROW_MESSAGE_H

#include <string_view>

#include "dch/core/field_reader.h"

namespace dch {

// Of a message that the server has taken for a row. What it points to lies in the message.
class RowMessage {
 public:
  explicit RowMessage(std::string_view message);

  short code() const { return _code; }

  struct Attribute {
    std::string_view name;
    char letter = 0;
    std::string_view value;
  };
  // Returns false when there is no further one.
  bool next(Attribute* attribute);

 private:
  FieldReader _fields;
  short _code = 0;
};

}  // namespace dch

#endif  // DCH_CORE_ROW_MESSAGE_H
