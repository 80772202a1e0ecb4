// child_process.h: a process that a benchmark starts for a part of its work.
#ifndef BENCH_CHILD_PROCESS_H
#define BENCH_CHILD_PROCESS_H

#include <sys/types.h>

#include <functional>

// The process ends with the object, and with the benchmark's own process.
class ChildProcess {
 public:
  // Runs `work` in a new process, which ends with status 0 when `work` returns, and with 1 after an
  // exception, whose text it writes to standard error. Throws when there is no process to be had.
  explicit ChildProcess(const std::function<void()>& work);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Waits for its end; whether it ended with status 0.
  bool succeeded();

 private:
  pid_t _id;
};

// Sends every byte through `descriptor`, or gets them; throws when the other end is gone.
void sendAll(int descriptor, const void* bytes, std::size_t size);
void receiveAll(int descriptor, void* bytes, std::size_t size);

#endif  // BENCH_CHILD_PROCESS_H
