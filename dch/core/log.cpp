#include "dch/core/log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

namespace dch {

void Log::write(const char* format, ...) const {
  if (!isEnabled()) return;
  std::va_list arguments;
  va_start(arguments, format);
  writeFormatted(Priority::info, format, arguments);
  va_end(arguments);
}

void Log::warn(const char* format, ...) const {
  std::va_list arguments;
  va_start(arguments, format);
  writeFormatted(Priority::warning, format, arguments);
  va_end(arguments);
}

void Log::writeFormatted(Priority priority, const char* format, std::va_list arguments) const {
  char line[1024];
  const int wanted = std::vsnprintf(line, sizeof line, format, arguments);
  writeLine(priority,
            {line, std::min(static_cast<std::size_t>(std::max(wanted, 0)), sizeof line - 1)});
}

namespace {

std::string escaped(std::string_view text) {
  std::string result;
  for (const char character : text) {
    if (character >= ' ' && character <= '~') {
      result += character;
    } else {
      char code[8];
      std::snprintf(code, sizeof code, "\\x%02x",
                    static_cast<unsigned>(static_cast<unsigned char>(character)));
      result += code;
    }
  }
  return result;
}

}  // namespace

std::string printable(std::string_view text) noexcept {
  try {
    return escaped(text);
  } catch (const std::bad_alloc&) {
    return "?";
  }
}

}  // namespace dch
