#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

constexpr std::chrono::seconds longestRun{50};

struct Pipe {
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  }
  ~Pipe() {
    for (const int end : ends)
      if (end >= 0) close(end);
  }
  void closeWriteEnd() {
    close(ends[1]);
    ends[1] = -1;
  }
  int ends[2];
};

[[noreturn]] void runBody(const std::function<int()>& body,
                          const std::map<std::string, std::string>& environment, Pipe& output,
                          Pipe& error) {
  dup2(output.ends[1], STDOUT_FILENO);
  dup2(error.ends[1], STDERR_FILENO);
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  const int status = body();
  std::fflush(nullptr);
  _exit(status);
}

// Collects what the child writes until it has closed both pipes.
bool collect(Pipe& output, Pipe& error, ChildResult* result) {
  const auto deadline = std::chrono::steady_clock::now() + longestRun;
  pollfd sources[] = {{output.ends[0], POLLIN, 0}, {error.ends[0], POLLIN, 0}};
  std::string* const targets[] = {&result->standardOutput, &result->standardError};
  int open = 2;
  while (open > 0) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || poll(sources, 2, static_cast<int>(left.count())) == 0) return false;
    for (int i = 0; i < 2; ++i) {
      if (sources[i].fd < 0 || sources[i].revents == 0) continue;
      char buffer[4096];
      const ssize_t count = read(sources[i].fd, buffer, sizeof buffer);
      if (count > 0) {
        targets[i]->append(buffer, static_cast<std::size_t>(count));
      } else {
        sources[i].fd = -1;
        --open;
      }
    }
  }
  return true;
}

}  // namespace

ChildResult runInChild(const std::function<int()>& body,
                       const std::map<std::string, std::string>& environment) {
  Pipe output;
  Pipe error;
  ChildResult result;
  std::fflush(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) runBody(body, environment, output, error);
  output.closeWriteEnd();
  error.closeWriteEnd();
  if (!collect(output, error, &result)) kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}
