// row_message.h: takes the message of a row apart.
#ifndef DCH_CORE_ROW_MESSAGE_H
#define DCH_CORE_ROW_MESSAGE_H

#include <string>
#include <string_view>
#include <vector>

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

// Whether it is a row that a server would have taken from a provider, but for what its registration
// says; then `attributes` are their names. Takes any bytes.
bool readRow(std::string_view message, std::vector<std::string_view>* attributes);

// Of what readRow() takes. All else stays as it came.
void setHandle(std::string* message, ZORA_Long handle);

}  // namespace dch

#endif  // DCH_CORE_ROW_MESSAGE_H
