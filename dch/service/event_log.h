// event_log.h: what --verbose shows.
#ifndef DCH_SERVICE_EVENT_LOG_H
#define DCH_SERVICE_EVENT_LOG_H

#include <atomic>

#include "dch/core/log.h"
#include "dch/service/log_output.h"

namespace dch {

// Writes one line per event, with its time; writes nothing while it is not enabled. Any thread.
class EventLog : public Log {
 public:
  // `output` outlives it.
  EventLog(bool isEnabled, LogOutput& output) : _isEnabled(isEnabled), _output(output) {}

  void setEnabled(bool isEnabled) { _isEnabled = isEnabled; }

 private:
  bool isEnabled() const override { return _isEnabled; }
  void writeLine(std::string_view line) const override;

  std::atomic<bool> _isEnabled;
  LogOutput& _output;
};

}  // namespace dch

#endif  // DCH_SERVICE_EVENT_LOG_H
