#include "dch/core/utf8.h"

#include <cstddef>

namespace dch {

namespace {

// The number of bytes of the character at the start of `text`, 0 when it is none.
std::size_t characterBytes(std::string_view text) {
  const auto byte = [&](std::size_t index) {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  const auto continues = [&](std::size_t index) { return (byte(index) & 0xC0) == 0x80; };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return continues(1) ? 2 : 0;
  if (first >= 0xE0 && first < 0xF0) {
    const bool isOverlong = first == 0xE0 && byte(1) < 0xA0;
    const bool isSurrogate = first == 0xED && byte(1) >= 0xA0;
    return continues(1) && continues(2) && !isOverlong && !isSurrogate ? 3 : 0;
  }
  if (first >= 0xF0 && first < 0xF5) {
    const bool isOverlong = first == 0xF0 && byte(1) < 0x90;
    const bool isTooHigh = first == 0xF4 && byte(1) >= 0x90;
    return continues(1) && continues(2) && continues(3) && !isOverlong && !isTooHigh ? 4 : 0;
  }
  return 0;
}

}  // namespace

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t count = characterBytes(text);
    if (count == 0) return false;
    text.remove_prefix(count);
  }
  return true;
}

std::string asUtf8(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const std::size_t count = characterBytes(text);
    if (count == 0)
      result += "\xEF\xBF\xBD";
    else
      result += text.substr(0, count);
    text.remove_prefix(count == 0 ? 1 : count);
  }
  return result;
}

}  // namespace dch
