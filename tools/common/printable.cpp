#include "tools/common/printable.h"

#include <wchar.h>
#include <wctype.h>

#include <cstdio>

namespace tools {
namespace {

constexpr std::size_t quotedBytes = 40;

// Marks that turn the direction of the text around them: printable by themselves, but a terminal
// may show everything after them in another order.
bool turnsDirection(wchar_t character) {
  return character == 0x061c || character == 0x200e || character == 0x200f ||
         (character >= 0x202a && character <= 0x202e) ||
         (character >= 0x2066 && character <= 0x2069);
}

void appendEscaped(std::string_view bytes, PrintableText* result) {
  for (const char byte : bytes) {
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(byte));
    result->text += escaped;
    result->columns += 4;
  }
}

}  // namespace

PrintableText printable(std::string_view text) {
  PrintableText result;
  mbstate_t state{};
  while (!text.empty()) {
    wchar_t character = 0;
    const std::size_t converted = mbrtowc(&character, text.data(), text.size(), &state);
    const bool known = converted > 0 && converted <= text.size();
    const std::string_view bytes = text.substr(0, known ? converted : 1);
    if (known && iswprint(static_cast<wint_t>(character)) && !turnsDirection(character)) {
      result.text += bytes;
      const int columns = wcwidth(character);
      result.columns += columns > 0 ? static_cast<std::size_t>(columns) : 0;
    } else {
      appendEscaped(bytes, &result);
      state = {};
    }
    text.remove_prefix(bytes.size());
  }
  return result;
}

std::string inQuotes(std::string_view text) {
  const bool cut = text.size() > quotedBytes;
  return "'" + printable(text.substr(0, quotedBytes)).text + (cut ? "...'" : "'");
}

}  // namespace tools
