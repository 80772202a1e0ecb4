#include "dch/web/text_parts.h"

namespace dch {

namespace {

char lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

// -1 for what is none.
int digitOf(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

}  // namespace

bool isSameName(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char one, char other) { return lower(one) == lower(other); });
}

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? digitOf(text[i + 1]) : -1;
    const int low = high >= 0 ? digitOf(text[i + 2]) : -1;
    if (low < 0) return std::nullopt;
    result += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return result;
}

}  // namespace dch
