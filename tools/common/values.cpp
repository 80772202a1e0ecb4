#include "tools/common/values.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <optional>

#include "tools/common/printable.h"

namespace tools {
namespace {

using suite::RegisteredAttribute;

bool isShortLetter(char letter) {
  return letter == 'I' || letter == 'S';
}

template <typename Number>
std::string bytesOf(std::int64_t number) {
  if (number < std::numeric_limits<Number>::min() || number > std::numeric_limits<Number>::max())
    throw BadValue(std::to_string(number) + " is out of range, " +
                   std::to_string(std::numeric_limits<Number>::min()) + " to " +
                   std::to_string(std::numeric_limits<Number>::max()));
  const auto value = static_cast<Number>(number);
  std::string bytes(sizeof value, '\0');
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

std::string encodeNumber(const RegisteredAttribute& attribute, std::string_view text) {
  const std::string_view digits = withoutBlanks(text);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error == std::errc::invalid_argument || end != digits.data() + digits.size())
    throw BadValue(inQuotes(text) + " is not a whole number");
  if (error == std::errc::result_out_of_range)
    throw BadValue(inQuotes(text) + " is out of range, it does not fit 64 bits");
  switch (attribute.size) {
    case 2:
      return bytesOf<std::int16_t>(number);
    case 4:
      return bytesOf<std::int32_t>(number);
    default:
      return bytesOf<std::int64_t>(number);
  }
}

std::string encodeText(const RegisteredAttribute& attribute, std::string_view text) {
  if (text.find('\0') != std::string_view::npos) throw BadValue("the text holds a zero byte");
  if (text.size() + 1 > static_cast<std::size_t>(attribute.size))
    throw BadValue("the text has " + std::to_string(text.size()) + " bytes, " +
                   std::to_string(attribute.size) +
                   " are registered and one of them is for the terminating zero");
  return std::string(text) + '\0';
}

template <typename Number>
std::int64_t numberOf(std::string_view bytes) {
  Number value;
  std::memcpy(&value, bytes.data(), sizeof value);
  return value;
}

std::optional<std::int64_t> decodeNumber(std::string_view bytes) {
  switch (bytes.size()) {
    case 1:
      return numberOf<std::int8_t>(bytes);
    case 2:
      return numberOf<std::int16_t>(bytes);
    case 4:
      return numberOf<std::int32_t>(bytes);
    case 8:
      return numberOf<std::int64_t>(bytes);
    default:
      return std::nullopt;
  }
}

std::string hexadecimal(std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text = "0x";
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += digits[value >> 4];
    text += digits[value & 15];
  }
  return text;
}

}  // namespace

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

bool isTextLetter(char letter) {
  return letter == 'D' || letter == 'R' || letter == 'T';
}

void checkAttribute(const RegisteredAttribute& attribute) {
  if (isTextLetter(attribute.letter)) return;
  const int size = attribute.size;
  if (isShortLetter(attribute.letter) && size != 2)
    throw BadValue(std::string("a number of letter ") + attribute.letter + " has size 2, not " +
                   std::to_string(size));
  if (size != 2 && size != 4 && size != 8)
    throw BadValue(std::string("a number of letter ") + attribute.letter +
                   " has size 2, 4 or 8, not " + std::to_string(size));
}

std::string encodeValue(const RegisteredAttribute& attribute, std::string_view text) {
  return isTextLetter(attribute.letter) ? encodeText(attribute, text)
                                        : encodeNumber(attribute, text);
}

DecodedValue decodeValue(char letter, std::string_view bytes) {
  if (isTextLetter(letter))
    return {DecodedValue::Kind::text, 0, std::string(bytes.substr(0, bytes.find('\0')))};
  if (const auto number = decodeNumber(bytes))
    return {DecodedValue::Kind::number, *number, std::to_string(*number)};
  return {DecodedValue::Kind::bytes, 0, hexadecimal(bytes)};
}

}  // namespace tools
