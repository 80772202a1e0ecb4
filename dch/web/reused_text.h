// reused_text.h: a text that takes the place of another one of its kind.
#ifndef DCH_WEB_REUSED_TEXT_H
#define DCH_WEB_REUSED_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace dch {

// In the same memory, unless that is far too much. Throws std::bad_alloc.
inline void reuse(std::string* text, std::string_view value) {
  constexpr std::size_t large = 4'096;
  if (text->capacity() > large && text->capacity() / 4 > value.size()) std::string().swap(*text);
  text->assign(value);
}

}  // namespace dch

#endif  // DCH_WEB_REUSED_TEXT_H
