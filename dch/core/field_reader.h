// field_reader.h: reads the fields of a request in their order.
#ifndef DCH_CORE_FIELD_READER_H
#define DCH_CORE_FIELD_READER_H

#include <cstddef>
#include <string_view>

#include "suite/field_reading.h"

namespace dch {

// Each operation reads the next field and answers whether it was the one asked for; after a false
// answer the rest of the message makes no sense. Values point into the message, which is left as it
// was received, so that it can be passed on. Nothing outside the message is read.
class FieldReader {
 public:
  explicit FieldReader(std::string_view message) : _fields(suite::fieldsOf(message)) {}

  bool readShort(short type, short* value);
  bool readLong(short type, ZORA_Long* value);

  // A text of at most `maxLength` characters.
  bool readText(short type, std::size_t maxLength, std::string_view* value);

  // The value of DCH_response: a text of a length of its own, without a terminating zero.
  bool readResponse(std::string_view* value);

  // The value of DCH_attrValue: its letter and the bytes behind it.
  bool readAttributeValue(char* letter, std::string_view* value);

  bool atEnd() const { return _fields.empty(); }

 private:
  bool next(short type, std::string_view* value);

  std::string_view _fields;  // that are still to be read
};

}  // namespace dch

#endif  // DCH_CORE_FIELD_READER_H
