// process_memory.h: what a process has in memory.
#ifndef BENCH_PROCESS_MEMORY_H
#define BENCH_PROCESS_MEMORY_H

#include <sys/types.h>

// Its resident set in bytes, without what it shares with files. Throws when it cannot be read.
long residentBytes(pid_t process);

#endif  // BENCH_PROCESS_MEMORY_H
