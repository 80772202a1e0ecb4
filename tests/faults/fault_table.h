// fault_table.h: what each system call can fail with.
#ifndef TESTS_FAULTS_FAULT_TABLE_H
#define TESTS_FAULTS_FAULT_TABLE_H

#include <vector>

#include "tests/support/failing_calls.h"

struct Failing {
  int error;       // what the call reports
  int errnoAfter;  // see Fault
};

// Every way in which a call is documented to fail, the usual one first.
const std::vector<Failing>& failuresOf(SystemCall call);

#endif  // TESTS_FAULTS_FAULT_TABLE_H
