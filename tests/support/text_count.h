// text_count.h: how often a text has a part.
#ifndef TESTS_SUPPORT_TEXT_COUNT_H
#define TESTS_SUPPORT_TEXT_COUNT_H

#include <string>

inline int countOf(const std::string& part, const std::string& text) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

#endif  // TESTS_SUPPORT_TEXT_COUNT_H
