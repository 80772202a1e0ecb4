// text_parts.h: takes texts of headers and addresses apart.
#ifndef DCH_WEB_TEXT_PARTS_H
#define DCH_WEB_TEXT_PARTS_H

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace dch {

// Takes what stands before the separator, or all of it, off the text, and the separator.
inline std::string_view takeUpTo(char separator, std::string_view* text) {
  const std::size_t end = std::min(text->find(separator), text->size());
  const std::string_view part = text->substr(0, end);
  text->remove_prefix(std::min(end + 1, text->size()));
  return part;
}

// Without the blanks around it.
inline std::string_view trimmed(std::string_view text) {
  while (text.starts_with(' ')) text.remove_prefix(1);
  while (text.ends_with(' ')) text.remove_suffix(1);
  return text;
}

// Whether they are the same but for capital and small letters.
bool isSameName(std::string_view left, std::string_view right);

// With the byte in the place of each % and its two hexadecimal digits; nothing where those do not
// follow.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace dch

#endif  // DCH_WEB_TEXT_PARTS_H
