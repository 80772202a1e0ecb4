// child_process.h: code of a test that runs in a process of its own, because it ends its process,
// needs another environment, or must not touch this one's once-per-process state.
#ifndef TESTS_SUPPORT_CHILD_PROCESS_H
#define TESTS_SUPPORT_CHILD_PROCESS_H

#include <functional>
#include <map>
#include <string>

struct ChildResult {
  int exitStatus = -1;  // -1 when a signal ended it
  int signal = 0;
  std::string standardOutput;
  std::string standardError;
  double seconds = 0;
};

// Runs `body` in a forked child with `environment` set, and waits for it. The child ends with the
// status that `body` returns; what it writes is collected. To be called before the test starts
// threads. A child that runs longer than 50 seconds is killed.
ChildResult runInChild(const std::function<int()>& body,
                       const std::map<std::string, std::string>& environment = {});

#endif  // TESTS_SUPPORT_CHILD_PROCESS_H
