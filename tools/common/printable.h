// printable.h: text from the network or from a file, made safe for a terminal.
#ifndef TOOLS_COMMON_PRINTABLE_H
#define TOOLS_COMMON_PRINTABLE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace tools {

struct PrintableText {
  std::string text;
  std::size_t columns = 0;  // what it takes on the terminal
};

// `text` with every character that could steer a terminal, or that the locale (LC_CTYPE) does not
// know as printable, replaced byte by byte by \xNN. A backslash stays as it is.
PrintableText printable(std::string_view text);

// `text` for a message: printable, cut to 40 bytes, in single quotes.
std::string inQuotes(std::string_view text);

}  // namespace tools

#endif  // TOOLS_COMMON_PRINTABLE_H
