#include "bench/cores.h"

#include <sched.h>

#include <stdexcept>
#include <string>

void runOnCore(int core) {
  cpu_set_t cores;
  CPU_ZERO(&cores);
  CPU_SET(core, &cores);
  if (sched_setaffinity(0, sizeof cores, &cores) != 0)
    throw std::runtime_error("this benchmark needs core " + std::to_string(core));
}
