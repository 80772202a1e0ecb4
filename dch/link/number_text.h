// number_text.h: reads numbers in texts that are compared with what is written of them afterwards.
#ifndef DCH_LINK_NUMBER_TEXT_H
#define DCH_LINK_NUMBER_TEXT_H

#include <charconv>
#include <string_view>

namespace dch {

// Any number when these are no digits of one.
template <class Number>
Number numberIn(std::string_view digits) {
  Number number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

}  // namespace dch

#endif  // DCH_LINK_NUMBER_TEXT_H
