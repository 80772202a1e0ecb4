// descriptors.h: how many files a process may have open.
#ifndef BENCH_DESCRIPTORS_H
#define BENCH_DESCRIPTORS_H

#include <sys/resource.h>

// Lets this process, and those it starts from now on, open as many as the system lets it.
inline void allowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

#endif  // BENCH_DESCRIPTORS_H
