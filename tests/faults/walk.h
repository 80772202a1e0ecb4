// walk.h: makes every call that a function reaches fail, one after the other, and looks at what
// comes of it.
#ifndef TESTS_FAULTS_WALK_H
#define TESTS_FAULTS_WALK_H

#include "tests/faults/scenario.h"

enum class Use {
  first,  // the process has not used the library before: settings, pool and trace are set up
  later
};

// For each kind of call that the scenario makes: lets the first fail, then the second, and so on
// until the scenario ends without having reached the fault, each in a process of its own. The
// test fails unless the scenario then has one of its outcomes, says why it failed, leaves no
// descriptor, memory or mutex behind, and succeeds when it is run again. The test has one thread.
// Returns the number of faults that were reached.
int walkThroughFaults(const Scenario& scenario, Use use);

#endif  // TESTS_FAULTS_WALK_H
