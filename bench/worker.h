// worker.h: a process that a benchmark starts for a part of its work.
#ifndef BENCH_WORKER_H
#define BENCH_WORKER_H

#include <functional>

#include "tests/support/process.h"

// Goes with the object. What `work` throws is told on standard error.
class Worker : public Process {
 public:
  explicit Worker(const std::function<void()>& work)
      : Process(
            [&] {
              work();
              return 0;
            },
            {}, Output::inherited) {}

  // Waits for its end, however long that takes; whether it ended well.
  bool succeeded() { return finish(std::chrono::hours(24)).exitStatus == 0; }
};

#endif  // BENCH_WORKER_H
