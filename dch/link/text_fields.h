// text_fields.h: takes texts apart whose fields have a blank between them.
#ifndef DCH_LINK_TEXT_FIELDS_H
#define DCH_LINK_TEXT_FIELDS_H

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace dch {

// The last one has what is left, with blanks if there are some. Nothing when there are fewer.
template <std::size_t count>
std::optional<std::array<std::string_view, count>> fieldsOf(std::string_view text) {
  std::array<std::string_view, count> fields;
  for (std::size_t index = 0; index + 1 < count; ++index) {
    const std::size_t blank = text.find(' ');
    if (blank == std::string_view::npos) return std::nullopt;
    fields[index] = text.substr(0, blank);
    text.remove_prefix(blank + 1);
  }
  fields.back() = text;
  return fields;
}

}  // namespace dch

#endif  // DCH_LINK_TEXT_FIELDS_H
