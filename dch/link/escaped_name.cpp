#include "dch/link/escaped_name.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace dch {

namespace {

constexpr char escapeSign = '%';

// Independent of the locale.
bool isLetterOrDigit(char character) {
  return (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z') ||
         (character >= '0' && character <= '9');
}

// Any byte when these are no hexadecimal digits.
unsigned char byteOf(std::string_view digits) {
  unsigned char byte = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
  return byte;
}

}  // namespace

std::string escapedName(std::string_view name, std::string_view plain) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  if (name.empty()) return {escapeSign};
  std::string text;
  text.reserve(name.size());
  for (const char character : name) {
    if (isLetterOrDigit(character) || plain.find(character) != std::string_view::npos) {
      text += character;
      continue;
    }
    const auto byte = static_cast<unsigned char>(character);
    text += {escapeSign, digits[byte >> 4], digits[byte & 0xF]};
  }
  return text;
}

std::optional<std::string> unescapedName(std::string_view text, std::string_view plain) {
  std::string name;
  for (std::string_view rest = text == "%" ? "" : text; !rest.empty();) {
    const bool isEscaped = rest.front() == escapeSign;
    auto byte = static_cast<unsigned char>(rest.front());
    if (isEscaped) byte = byteOf(rest.substr(1, 2));
    name += static_cast<char>(byte);
    rest.remove_prefix(std::min<std::size_t>(isEscaped ? 3 : 1, rest.size()));
  }
  // A name is written in one way only: what was something else is written differently now.
  if (escapedName(name, plain) != text) return std::nullopt;
  return name;
}

}  // namespace dch
