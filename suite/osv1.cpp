#include "suite/osv1.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "suite/cancellation.h"

const char* OSV1_GetEnv(const char* name, [[maybe_unused]] int reserved) {
  return std::getenv(name);
}

void OSV1_Sleep(int seconds) {
  if (seconds <= 0) return;
  // To a point in time, so that interruptions do not add up.
  timespec wakeUp;
  clock_gettime(CLOCK_MONOTONIC, &wakeUp);
  wakeUp.tv_sec += seconds;
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wakeUp, nullptr) == EINTR) {
  }
}

void OSV1_EndProcess(int pauseSeconds) {
  const suite::CancellationOff cancellationOff;  // the process ends, not the thread
  std::fflush(stderr);
  std::fflush(stdout);
  OSV1_Sleep(pauseSeconds);
  std::exit(EXIT_FAILURE);
}
