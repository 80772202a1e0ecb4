// measures.h: what a process uses, how long rows take, and what a load needs of the machine.
#ifndef TESTS_LOAD_MEASURES_H
#define TESTS_LOAD_MEASURES_H

#include <sys/types.h>

#include <cstddef>

#include "tests/load/providers.h"

namespace load {

// What a process uses.
struct Usage {
  long residentKilobytes = 0;
  long mostResidentKilobytes = 0;  // since it was started
  int descriptors = 0;
};

// Throws std::runtime_error when it has ended.
Usage usageOf(pid_t process);

// Processor time of all its threads so far, in seconds. Throws std::runtime_error when it has
// ended.
double processorSeconds(pid_t process);

struct Quantiles {
  double p50 = 0, p99 = 0, longest = 0;  // milliseconds
  std::size_t count = 0;
};

// Throws std::runtime_error when there are none.
Quantiles quantilesOf(Latencies latencies);

// What the library of this process asks.
void pointLibraryTo(int port);

// For so many subscribers, each of which has two sockets. Throws std::runtime_error.
void raiseDescriptorLimit(int subscribers);

}  // namespace load

#endif  // TESTS_LOAD_MEASURES_H
