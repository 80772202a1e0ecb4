// event_log.h: what --verbose shows.
#ifndef DCH_SERVICE_EVENT_LOG_H
#define DCH_SERVICE_EVENT_LOG_H

#include <atomic>
#include <mutex>

#include "dch/core/log.h"
#include "dch/service/line_limit.h"
#include "dch/service/log_output.h"

namespace dch {

// Writes one line per event, with its time; writes no event while it is not enabled, and leaves out
// what is more than a log should take. Any thread.
class EventLog : public Log {
 public:
  // `output` outlives it.
  EventLog(bool isEnabled, LogOutput& output) : _isEnabled(isEnabled), _output(output) {}

  void setEnabled(bool isEnabled) { _isEnabled = isEnabled; }

 private:
  bool isEnabled() const override { return _isEnabled && isAdmitted(); }
  void writeLine(Priority priority, std::string_view line) const override;

  bool isAdmitted() const;

  std::atomic<bool> _isEnabled;
  LogOutput& _output;
  mutable std::mutex _mutex;  // guards what follows
  mutable LineLimit _limit;
};

}  // namespace dch

#endif  // DCH_SERVICE_EVENT_LOG_H
