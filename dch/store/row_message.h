// row_message.h: takes the message of a row apart.
#ifndef DCH_STORE_ROW_MESSAGE_H
#define DCH_STORE_ROW_MESSAGE_H

#include <string_view>

#include "dch/core/field_reader.h"
#include "dch/store/sqlite.h"

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

// Binds a value as what its letter says: text up to its terminating zero for D, R and T, else a
// number, signed and in the byte order of the host. What is neither is bound as bytes.
void bindValue(sqlite::Statement& statement, int parameter, const RowMessage::Attribute& attribute);

}  // namespace dch

#endif  // DCH_STORE_ROW_MESSAGE_H
