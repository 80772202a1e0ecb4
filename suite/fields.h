// fields.h: messages and their fields, written and read.
//
// A message is a 4-byte length in network order that counts itself, then fields. A field is a
// 6-byte header, type code (16 bits) and number of value bytes (32 bits), both in network order,
// then the value. Fixed-width values travel in network order; text carries its terminating zero,
// which counts; DCH_attrValue is the attribute-type character followed by the provider's bytes.
//
// Any thread may call any function here, on a message that no other thread uses. None throws.
#ifndef SUITE_FIELDS_H
#define SUITE_FIELDS_H

#include <cstddef>
#include <cstdint>

#include "suite/interface_types.h"

constexpr std::size_t ZOR0_LENGTH_WORD_SIZE = 4;
constexpr std::size_t ZOR0_FIELD_HEADER_SIZE = 6;

// Largest message to the DCH in bytes: it reads no more of a datagram.
constexpr int ZOR0_MAX_REQUEST_SIZE = 4096;

// Field type codes.
enum ZOR0_FieldType : short {
  DCH_requestType = 16,
  DCH_status = 17,
  DCH_response = 18,
  DCH_applName = 32,
  DCH_applKey = 33,
  DCH_sourceName = 34,
  DCH_attrGroup = 35,
  DCH_tableName = 36,
  DCH_attrName = 80,
  DCH_attrValue = 81,
  DCH_dataCode = 112,
  DCH_handle = 128,
  DCH_actionType = 256,
  DCH_actionName = 272,
  DCH_actionID = 288,
  DCH_actionParms = 304,
  DCH_actionOwner = 336,
  DCH_currentTime = 352,
  DCH_peltaObject = 368,
};

// How the value of a field type is laid out.
enum class ZOR0_FieldLayout { unknown, fixed16, fixed32, text, bytes, attributeValue };
ZOR0_FieldLayout ZOR0_LayoutOfField(short type);

// Reads a message field by field; see ZOR0_ExtractDataField. The cursor does not own the message.
class ZOR0_FieldCursor {
 public:
  // Starts at the first field of a message of which `received` bytes are in memory. What lies
  // beyond the message's own length word, or beyond `received`, is never looked at.
  ZOR0_FieldCursor(void* message, std::size_t received);

  bool atEnd() const { return _position == _end; }

 private:
  friend short ZOR0_ExtractDataField(ZOR0_FieldCursor*, void**, ZORA_Long*, char*);
  char* _position;
  char* _end;
};

extern "C" {

// Appends one field at `position`, which lies inside the message that starts at `message`, and sets
// the message's length word to end there. Returns the number of bytes written, 0 for a type it does
// not know. Fixed-width values are passed by address in host order with `length` 0; text is taken
// to its terminating zero with `length` 0, null as empty; DCH_response and DCH_attrValue take
// `length` bytes, DCH_attrValue with the address of the attribute-type character in `attrType`. The
// caller sees to the room: ZOR0_FieldSize tells what a field takes.
ZORA_Long ZOR0_FormatDataField(void* message, void* position, short type, const void* value,
                               ZORA_Long length, const char* attrType);

}  // extern "C"

// The number of bytes that ZOR0_FormatDataField writes for the same arguments.
std::size_t ZOR0_FieldSize(short type, const void* value, ZORA_Long length);

// Reads the field at the cursor and moves the cursor past it. Stores the address of the value,
// which lies in the message, and the number of value bytes; a fixed-width value is turned to host
// order in place, so a message is read once. For DCH_attrValue the value starts past the type
// character, which is stored through `attrType` when that is not null. Returns the type code. A
// field that does not fit its message, a fixed-width field of another width, a text without a
// terminating zero among its bytes and the end of the message give 0, a null value and length 0,
// and leave the cursor at the end; an unknown type that fits is returned as it is, with its bytes.
short ZOR0_ExtractDataField(ZOR0_FieldCursor* cursor, void** value, ZORA_Long* length,
                            char* attrType);

// The length word of a message, in host order. Four bytes must be there.
std::uint32_t ZOR0_MessageLength(const void* message);

#endif  // SUITE_FIELDS_H
