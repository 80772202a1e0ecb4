// bytes.h: messages written out byte by byte.
#ifndef TESTS_SUPPORT_BYTES_H
#define TESTS_SUPPORT_BYTES_H

#include <string>
#include <string_view>

// The bytes that pairs of hexadecimal digits stand for; blanks between pairs do not count, and what
// stands in single quotes stands for its own characters: "0020 00000004 'abc' 00".
inline std::string bytesOf(std::string_view notation) {
  std::string bytes;
  for (std::size_t i = 0; i < notation.size();) {
    if (notation[i] == ' ') {
      ++i;
    } else if (notation[i] == '\'') {
      const std::size_t end = notation.find('\'', i + 1);
      bytes += notation.substr(i + 1, end - i - 1);
      i = end + 1;
    } else {
      bytes += static_cast<char>(std::stoi(std::string(notation.substr(i, 2)), nullptr, 16));
      i += 2;
    }
  }
  return bytes;
}

#endif  // TESTS_SUPPORT_BYTES_H
