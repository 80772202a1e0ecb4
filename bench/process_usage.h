// process_usage.h: what a process uses of the machine.
#ifndef BENCH_PROCESS_USAGE_H
#define BENCH_PROCESS_USAGE_H

#include <sys/types.h>

// They throw when it cannot be read.

// Its resident set in bytes: the whole of it, and what of it is shared with no file.
long residentBytes(pid_t process);
long ownResidentBytes(pid_t process);
// The most that its resident set has been.
long mostResidentBytes(pid_t process);

// The processor time of all its threads so far.
double processorMicroseconds(pid_t process);

#endif  // BENCH_PROCESS_USAGE_H
