// system_call_faults.h: calls of the system that fail, by strace.
#ifndef DCH_TESTKIT_SYSTEM_CALL_FAULTS_H
#define DCH_TESTKIT_SYSTEM_CALL_FAULTS_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/process.h"

namespace dch::testkit {

// One kind of call, as the parameter of a test.
struct SystemCall {
  const char* name;
  std::vector<const char*> errors;  // which it fails with, in turn
  int first = 1;                    // number of the first that may fail

  const char* error(std::size_t turn) const { return errors[turn % errors.size()]; }

  friend void PrintTo(const SystemCall& call, std::ostream* out) { *out << call.name; }
};

// Whether strace can trace here.
bool canTrace();

// Arguments for strace with which `count` calls of that name fail, from that `number` on, in all
// threads and processes. What it sees goes to the file `log`.
Process::Arguments faultArguments(const std::string& call, const std::string& error, int number,
                                  int count, const std::string& log);

// Whether a call failed, by that file.
bool hasFailed(const std::string& log);

}  // namespace dch::testkit

#endif  // DCH_TESTKIT_SYSTEM_CALL_FAULTS_H
