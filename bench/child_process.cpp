#include "bench/child_process.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>

namespace {

[[noreturn]] void runAndEnd(const std::function<void()>& work) {
  try {
    work();
    std::_Exit(0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "benchmark's child process: %s\n", error.what());
    std::_Exit(1);
  }
}

}  // namespace

ChildProcess::ChildProcess(const std::function<void()>& work) {
  const pid_t parent = getpid();
  _id = fork();
  if (_id < 0) throw std::runtime_error("no process to be had");
  if (_id > 0) return;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) std::_Exit(1);
  runAndEnd(work);
}

ChildProcess::~ChildProcess() {
  if (_id < 0) return;
  kill(_id, SIGKILL);
  waitpid(_id, nullptr, 0);
}

bool ChildProcess::succeeded() {
  int outcome = 1;
  waitpid(_id, &outcome, 0);
  _id = -1;
  return outcome == 0;
}

void sendAll(int descriptor, const void* bytes, std::size_t size) {
  if (send(descriptor, bytes, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
    throw std::runtime_error("a process of the benchmark is gone");
}

void receiveAll(int descriptor, void* bytes, std::size_t size) {
  if (recv(descriptor, bytes, size, MSG_WAITALL) != static_cast<ssize_t>(size))
    throw std::runtime_error("a process of the benchmark is gone");
}
