#include "dch/event_log.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <new>

namespace dch {

namespace {

// Puts "2026-01-31T23:59:59.123456Z zordchd: " at the start of `line`; returns its length.
std::size_t writePrefix(char* line, std::size_t capacity) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm utc{};
  gmtime_r(&now.tv_sec, &utc);
  const std::size_t used = std::strftime(line, capacity, "%Y-%m-%dT%H:%M:%S", &utc);
  const int more = std::snprintf(line + used, capacity - used,
                                 ".%06dZ zordchd: ", static_cast<int>(now.tv_nsec / 1000));
  return used + static_cast<std::size_t>(more);
}

}  // namespace

void EventLog::write(const char* format, ...) const {
  if (!_enabled) return;
  char line[1024];
  std::size_t length = writePrefix(line, sizeof line);
  std::va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(line + length, sizeof line - length, format, arguments);
  va_end(arguments);
  // A text that is too long was cut; the line end takes the place of the terminating zero.
  length = std::min(length + static_cast<std::size_t>(std::max(wanted, 0)), sizeof line - 1);
  line[length] = '\n';
  // One write a line. A log that cannot be written holds nothing up.
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line, length + 1);
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
