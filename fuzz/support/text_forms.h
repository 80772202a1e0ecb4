// text_forms.h: what the texts of the link are made of, told in another way than they are written.
#ifndef FUZZ_SUPPORT_TEXT_FORMS_H
#define FUZZ_SUPPORT_TEXT_FORMS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "dch/core/epoch.h"
#include "fuzz/support/input.h"

namespace fuzz {

inline bool isOneOf(char character, std::string_view characters) {
  return characters.find(character) != std::string_view::npos;
}

// Whether it is a name with all but letters, digits and `further` escaped.
inline bool isEscaped(std::string_view text, std::string_view further) {
  constexpr std::string_view hexDigits = "0123456789ABCDEF";
  constexpr std::string_view plain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  const auto isPlain = [&](char each) { return isOneOf(each, plain) || isOneOf(each, further); };
  if (text == "%") return true;
  if (text.empty()) return false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (isPlain(text[index])) continue;
    if (text[index] != '%' || text.size() - index < 3) return false;
    const std::size_t high = hexDigits.find(text[++index]), low = hexDigits.find(text[++index]);
    if (high >= 16 || low >= 16 || isPlain(static_cast<char>(high << 4 | low))) return false;
  }
  return true;
}

inline constexpr std::string_view most64 = "9223372036854775807";
inline constexpr std::string_view mostUnsigned = "18446744073709551615";

// Whether it is a whole number from -most - 1 to most as it is usually written.
inline bool isNumber(std::string_view text, std::string_view most) {
  const bool isNegative = text.substr(0, 1) == "-";
  if (isNegative) text.remove_prefix(1);
  if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) return false;
  if (text[0] == '0') return text.size() == 1 && !isNegative;
  std::string last(most);
  if (isNegative) ++last.back();  // neither 2^31 - 1 nor 2^63 - 1 ends in 9
  return text.size() < last.size() || (text.size() == last.size() && text <= last);
}

// The same from 0 on.
inline bool isCount(std::string_view text, std::string_view most) {
  return text.substr(0, 1) != "-" && isNumber(text, most);
}

inline bool isEpoch(std::string_view text) {
  return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

inline std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (std::size_t end = 0; (end = text.find(separator)) != std::string_view::npos;
       text.remove_prefix(end + 1))
    parts.push_back(text.substr(0, end));
  parts.push_back(text);
  return parts;
}

template <class Number>
Number take(Input* input) {
  const std::string_view bytes = input->takeBytes(sizeof(Number));
  Number number = 0;
  std::memcpy(&number, bytes.data(), bytes.size());
  return number;
}

inline dch::Epoch takeEpoch(Input* input) {
  dch::Epoch epoch;
  const std::string_view bytes = input->takeBytes(epoch.bytes.size());
  std::memcpy(epoch.bytes.data(), bytes.data(), bytes.size());
  return epoch;
}

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_TEXT_FORMS_H
