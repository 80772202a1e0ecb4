// answering_dch.h: a DCH that answers everything well, in a process of its own, so that the process
// under test has one thread and can be forked at any time.
#ifndef TESTS_FAULTS_ANSWERING_DCH_H
#define TESTS_FAULTS_ANSWERING_DCH_H

#include <optional>

#include "tests/support/process.h"

// Runs until it is destroyed or its process ends. Points ZORA_DCH_ADDR and ZORA_DCH_PORT there.
class AnsweringDch {
 public:
  AnsweringDch();

 private:
  std::optional<Process> _process;
};

#endif  // TESTS_FAULTS_ANSWERING_DCH_H
