// error_log.h: a log whose lines a test finds on standard error.
#ifndef DCH_TESTKIT_ERROR_LOG_H
#define DCH_TESTKIT_ERROR_LOG_H

#include <cstdio>

#include "dch/core/log.h"

namespace dch::testkit {

class ErrorLog : public Log {
 public:
  explicit ErrorLog(bool enabled) : _enabled(enabled) {}

 private:
  bool isEnabled() const override { return _enabled; }
  void writeLine(Priority, std::string_view line) const override {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  }

  const bool _enabled;
};

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_ERROR_LOG_H
