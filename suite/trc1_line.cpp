// The lines of the trace: prefix and text.
#include <unistd.h>

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "suite/cancellation.h"
#include "suite/errno_keeper.h"
#include "suite/trc1.h"
#include "suite/trc1_sink.h"

namespace {

// Writes "2026-01-31T23:59:59.123456Z PID.TID COMPONENT FUNCTION:LINE " and returns its length. The
// calendar is worked out here: the C library's own takes a lock that a forked child may find held.
std::size_t formatPrefix(char* out, std::size_t size, const TRC1_Block& block, int line) {
  using namespace std::chrono;
  const auto now = floor<microseconds>(system_clock::now());
  const auto today = floor<days>(now);
  const year_month_day date(today);
  const hh_mm_ss time(now - today);
  const int length = std::snprintf(
      out, size, "%04d-%02u-%02uT%02d:%02d:%02d.%06dZ %ld.%ld %s %s:%d ",
      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
      static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
      static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
      static_cast<int>(time.subseconds().count()), static_cast<long>(getpid()),
      static_cast<long>(gettid()), block.unit->component, block.function, line);
  if (length < 0) return 0;
  return static_cast<std::size_t>(length) < size ? static_cast<std::size_t>(length) : size - 1;
}

void writeLine(const TRC1_Block& block, int line, const char* format, std::va_list arguments) {
  // A traced function may hold what only its next line gives back.
  const suite::CancellationOff cancellationOff;
  constexpr std::size_t usualSize = 1024;
  constexpr std::size_t maxPrefix = 512;
  char usual[usualSize];
  const std::size_t prefix = formatPrefix(usual, maxPrefix, block, line);

  std::va_list again;
  va_copy(again, arguments);
  char* record = usual;
  std::unique_ptr<char[]> longer;
  std::size_t textLength = 0;
  const int needed = std::vsnprintf(usual + prefix, usualSize - prefix, format, arguments);
  if (needed > 0) textLength = static_cast<std::size_t>(needed);
  if (prefix + textLength >= usualSize) {
    longer.reset(new (std::nothrow) char[prefix + textLength + 1]);
    if (longer != nullptr) {
      record = longer.get();
      std::memcpy(record, usual, prefix);
      std::vsnprintf(record + prefix, textLength + 1, format, again);
    } else {
      textLength = usualSize - prefix - 1;
    }
  }
  va_end(again);

  suite::writeRecord(
      {block.unit->component, block.unit->name, block.function, line, record + prefix, textLength},
      record, prefix + textLength);
}

}  // namespace

void TRC1_Printf(TRC1_Block* block, int line, const char* format, ...) {
  const suite::ErrnoKeeper errnoKeeper;
  std::va_list arguments;
  va_start(arguments, format);
  writeLine(*block, line, format, arguments);
  va_end(arguments);
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind kind) {
  TRC1_Printf(block, line, "%s", kind == TRC1_ENTRY ? "<<Entry>>\n" : "<<Exit>>\n");
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind, long long value) {
  TRC1_Printf(block, line, "<<Exit: %lld>>\n", value);
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind, const char* value) {
  TRC1_Printf(block, line, "<<Exit: %s>>\n", value != nullptr ? value : "(null)");
}

void TRC1_Event(TRC1_Block* block, int line, TRC1_EventKind, const void* value) {
  TRC1_Printf(block, line, "<<Exit: %p>>\n", value);
}
