// field_reader.h: reads the fields of a request in their order.
#ifndef DCH_FIELD_READER_H
#define DCH_FIELD_READER_H

#include <cstddef>
#include <string_view>

#include "suite/fields.h"

namespace dch {

// Each operation reads the next field and answers whether it was the one asked for; after a false
// answer the rest of the message makes no sense. Values point into the message, which is left as it
// was received, so that it can be passed on. Nothing outside the message is read.
class FieldReader {
 public:
  FieldReader(char* message, std::size_t received) : _cursor(message, received) {}

  bool readShort(short type, short* value);
  bool readLong(short type, ZORA_Long* value);

  // A text of at most `maxLength` characters.
  bool readText(short type, std::size_t maxLength, std::string_view* value);

  // The value of DCH_response: a text of a length of its own, without a terminating zero.
  bool readResponse(std::string_view* value);

  // The value of DCH_attrValue: its letter and the number of bytes behind it.
  bool readAttributeValue(char* letter, ZORA_Long* length);

  bool atEnd() const { return _cursor.atEnd(); }

 private:
  bool next(short type, void** value, ZORA_Long* length, char* letter = nullptr);

  ZOR0_FieldCursor _cursor;
};

}  // namespace dch

#endif  // DCH_FIELD_READER_H
