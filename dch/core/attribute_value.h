// attribute_value.h: what the value of an attribute is.
#ifndef DCH_CORE_ATTRIBUTE_VALUE_H
#define DCH_CORE_ATTRIBUTE_VALUE_H

#include <cstdint>
#include <string_view>

namespace dch {

// A text or bytes stay with whoever they came from.
struct AttributeValue {
  enum class Kind { none, number, text, bytes };

  Kind kind = Kind::none;
  std::int64_t number = 0;
  std::string_view bytes;  // of a text, which is well-formed UTF-8, or of bytes

  bool operator==(const AttributeValue&) const = default;
};

// Whether values with this letter are texts.
inline bool isTextLetter(char letter) {
  return letter == 'D' || letter == 'R' || letter == 'T';
}

// The value that a row has: a text up to its terminating zero for D, R and T, else a number, signed
// and in the byte order of the host. What is neither, or a text that is no UTF-8, is bytes.
AttributeValue attributeValue(char letter, std::string_view bytes);

}  // namespace dch

#endif  // DCH_CORE_ATTRIBUTE_VALUE_H
