// event_log.h: what --verbose shows.
#ifndef DCH_EVENT_LOG_H
#define DCH_EVENT_LOG_H

#include "dch/core/log.h"

namespace dch {

// Writes one line per event, with its time, to standard error; writes nothing unless it is enabled.
// Any thread may write; lines stay whole.
class EventLog : public Log {
 public:
  explicit EventLog(bool enabled) : _enabled(enabled) {}

 private:
  bool isEnabled() const override { return _enabled; }
  void writeLine(std::string_view line) const override;

  const bool _enabled;
};

}  // namespace dch

#endif  // DCH_EVENT_LOG_H
