#include "bench/cores.h"

#include <sched.h>

#include <stdexcept>

namespace {

cpu_set_t allowedCores() {
  cpu_set_t cores;
  if (sched_getaffinity(0, sizeof cores, &cores) != 0) CPU_ZERO(&cores);
  return cores;
}

// Before the process keeps itself on one of them.
const cpu_set_t allowedAtStart = allowedCores();

}  // namespace

void runOnCore(int number) {
  int core = 0;
  for (int skipped = 0; core < CPU_SETSIZE; ++core)
    if (CPU_ISSET(core, &allowedAtStart) && skipped++ == number) break;
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  if (core == CPU_SETSIZE || sched_setaffinity(0, sizeof cores, &cores) != 0)
    throw std::runtime_error("this benchmark needs two cores");
}

OnCore::~OnCore() {
  sched_setaffinity(0, sizeof allowedAtStart, &allowedAtStart);
}
