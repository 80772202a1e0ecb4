// values.h: how the value of an attribute travels. The one place that knows what the letters mean.
//
// A C G L N are numbers, I S 16-bit numbers, both signed and in the byte order of the host; D R T
// is text that travels with its terminating zero.
#ifndef TOOLS_COMMON_VALUES_H
#define TOOLS_COMMON_VALUES_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "suite/registration.h"

namespace tools {

bool isTextLetter(char letter);

// The text without the blanks and tabs around it.
std::string_view withoutBlanks(std::string_view text);

// What is wrong with a value or an attribute, without its place.
class BadValue : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws BadValue when no value can be encoded for the attribute: a number of another size than 2,
// 4 or 8 bytes, a 16-bit number of another size than 2.
void checkAttribute(const suite::RegisteredAttribute& attribute);

// The bytes that travel for the value that `text` writes. Throws BadValue when it is no whole
// number or out of range, or a text that holds a zero byte or is too long.
std::string encodeValue(const suite::RegisteredAttribute& attribute, std::string_view text);

struct DecodedValue {
  enum class Kind { number, text, bytes };
  Kind kind;
  std::int64_t number;  // of a number
  std::string text;     // a number in decimal, a text without its zero, other bytes as 0x...
};

// Any letter and any bytes can be decoded: text to its terminating zero, or all of it when there is
// none; numbers of 1, 2, 4 or 8 bytes; the rest as bytes.
DecodedValue decodeValue(char letter, std::string_view bytes);

}  // namespace tools

#endif  // TOOLS_COMMON_VALUES_H
