// event_log.h: what --verbose shows.
#ifndef DCH_SERVICE_EVENT_LOG_H
#define DCH_SERVICE_EVENT_LOG_H

#include "dch/core/log.h"
#include "dch/service/log_output.h"

namespace dch {

// Writes one line per event, with its time; writes nothing unless it is enabled. Any thread.
class EventLog : public Log {
 public:
  // `output` outlives it.
  EventLog(bool enabled, LogOutput& output) : _enabled(enabled), _output(output) {}

 private:
  bool isEnabled() const override { return _enabled; }
  void writeLine(std::string_view line) const override;

  const bool _enabled;
  LogOutput& _output;
};

}  // namespace dch

#endif  // DCH_SERVICE_EVENT_LOG_H
