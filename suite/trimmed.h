// trimmed.h: the one rule by which rules and registration texts shed the blanks around their parts.
#ifndef SUITE_TRIMMED_H
#define SUITE_TRIMMED_H

#include <string_view>

// The text without the blanks, tabs and line ends at its ends.
inline std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

#endif  // SUITE_TRIMMED_H
