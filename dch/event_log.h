// event_log.h: what --verbose shows.
#ifndef DCH_EVENT_LOG_H
#define DCH_EVENT_LOG_H

#include <string>
#include <string_view>

namespace dch {

// Writes one line per event, with its time, to standard error; writes nothing unless it is enabled.
// Any thread may write; lines stay whole.
class EventLog {
 public:
  explicit EventLog(bool enabled) : _enabled(enabled) {}

  // A line without its time and its end.
  [[gnu::format(printf, 2, 3)]] void write(const char* format, ...) const;

 private:
  const bool _enabled;
};

// `text` for a line: bytes that are not printable ASCII become \xNN, so that what a client sends
// cannot forge a line or drive a terminal. Without memory it is "?": a line about something that
// has been done must not make it look undone.
std::string printable(std::string_view text) noexcept;

}  // namespace dch

#endif  // DCH_EVENT_LOG_H
