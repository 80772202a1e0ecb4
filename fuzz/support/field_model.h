// field_model.h: reads messages without the library's decoder: what a target compares it with.
#ifndef FUZZ_SUPPORT_FIELD_MODEL_H
#define FUZZ_SUPPORT_FIELD_MODEL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "suite/fields.h"

namespace fuzz {

// The first `width` bytes as a number in network order; bytes that are not there count as zero.
std::uint32_t numberIn(std::string_view bytes, std::size_t width);

struct Field {
  std::uint16_t type;
  std::string_view value;  // in the message, as it travels; with the type letter of DCH_attrValue
};

// Reads the fields of a message from the first on.
class FieldModel {
 public:
  // `received` bytes begin with the message's length word; what lies beyond either end is not part
  // of the message.
  explicit FieldModel(std::string_view received);

  // The next field, nothing at the end and from the first malformed field on.
  std::optional<Field> next();

  // The value of the next field when it is of this type.
  std::optional<std::string_view> next(std::uint16_t type);
  // The same for a field of 16 bits, of 32 bits, and for a text, without its terminating zero.
  std::optional<short> nextShort(std::uint16_t type);
  std::optional<ZORA_Long> nextLong(std::uint16_t type);
  std::optional<std::string_view> nextText(std::uint16_t type);

  // Everything was read.
  bool atEnd() const { return _left.empty(); }

 private:
  std::string_view _left;
};

// Whether the message is exactly as long as its length word says.
inline bool lengthWordIsRight(std::string_view message) {
  return message.size() >= 4 && numberIn(message, 4) == message.size();
}

// Whether `message` is a status event, whole.
bool isStatusEvent(std::string_view message);

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_FIELD_MODEL_H
