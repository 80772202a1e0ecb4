// log.h: what the server tells of its doings.
#ifndef DCH_CORE_LOG_H
#define DCH_CORE_LOG_H

#include <bit>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

namespace dch {

// As in syslog(3).
enum class Priority { error = 3, warning = 4, notice = 5, info = 6 };

class Log {
 public:
  virtual ~Log() = default;

  // Writes one line, given without its end; what is longer than a line may be is cut.
  [[gnu::format(printf, 2, 3)]] void write(const char* format, ...) const;

  // The same for what the operator has to know, whether he asked to be told each event or not.
  [[gnu::format(printf, 2, 3)]] void warn(const char* format, ...) const;

 private:
  void writeFormatted(Priority priority, const char* format, std::va_list arguments) const;

  virtual bool isEnabled() const = 0;
  virtual void writeLine(Priority priority, std::string_view line) const = 0;
};

// `text` for a line: bytes that are not printable ASCII become \xNN, so that what a client sends
// cannot forge a line or drive a terminal. Without memory it is "?": a line about something that
// has been done must not make it look undone.
std::string printable(std::string_view text) noexcept;

// Whether something that has happened so often is told this time: when the number doubles, so that
// nobody can fill the log with it.
constexpr bool isToldAt(std::uint64_t count) {
  return std::has_single_bit(count);
}

}  // namespace dch

#endif  // DCH_CORE_LOG_H
