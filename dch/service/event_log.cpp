#include "dch/service/event_log.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>

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

bool EventLog::isAdmitted() const {
  std::uint64_t leftOut;
  {
    const std::lock_guard lock(_mutex);
    if (!_limit.admit(LineLimit::Clock::now())) {
      _output.countDropped();
      return false;
    }
    leftOut = _limit.takeLeftOut();
  }
  if (leftOut > 0) warn("%" PRIu64 " line(s) left out: there were too many", leftOut);
  return true;
}

void EventLog::writeLine(Priority priority, std::string_view text) const {
  char line[1024];
  std::size_t length = writePrefix(line, sizeof line);
  length += text.copy(line + length, sizeof line - length - 1);
  line[length] = '\n';
  _output.write(priority, {line, length + 1});
}

}  // namespace dch
