#include "dch/testkit/server_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "tests/support/child_process.h"
#include "tests/support/text_count.h"

namespace dch::testkit {

namespace {

constexpr std::chrono::seconds longestWait{50};

struct Pipe {
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
  }
  int ends[2];
};

// Does not return when the program was found.
void becomeServer(const ServerProcess::Arguments& arguments) {
  std::vector<char*> pointers{const_cast<char*>(ZORDCHD_PATH)};
  for (const std::string& argument : arguments)
    pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  execv(ZORDCHD_PATH, pointers.data());
}

constexpr int cannotRun = 127;

}  // namespace

ServerProcess::ServerProcess(const Arguments& moreArguments, void (*prepare)()) {
  Arguments arguments{"--port", "0"};
  arguments.insert(arguments.end(), moreArguments.begin(), moreArguments.end());
  start(arguments, prepare);
  std::unique_lock lock(_mutex);
  const auto isReady = [&] { return _standardOutput.find('\n') != std::string::npos; };
  if (!_more.wait_for(lock, longestWait, isReady) ||
      std::sscanf(_standardOutput.c_str(), "zordchd %*s ready on %*s port %d\n", &_port) != 1) {
    lock.unlock();
    stop(SIGKILL);
    throw std::runtime_error("zordchd is not ready: " + _standardOutput + _standardError);
  }
}

ServerProcess::~ServerProcess() {
  if (_processId > 0) stop(SIGKILL);
}

std::string ServerProcess::standardOutput() const {
  const std::lock_guard lock(_mutex);
  return _standardOutput;
}

std::string ServerProcess::standardError() const {
  const std::lock_guard lock(_mutex);
  return _standardError;
}

bool ServerProcess::waitForError(const std::string& text, int times) {
  std::unique_lock lock(_mutex);
  return _more.wait_for(lock, longestWait, [&] { return countOf(text, _standardError) >= times; });
}

int ServerProcess::stop(int signal) {
  kill(_processId, signal);
  return wait();
}

int ServerProcess::wait() {
  {
    // It has ended when both of its outputs are closed.
    std::unique_lock lock(_mutex);
    if (!_more.wait_for(lock, longestWait, [&] { return _openOutputs == 0; }))
      kill(_processId, SIGKILL);
  }
  int status = 0;
  waitpid(_processId, &status, 0);
  _processId = -1;
  _outputReader.join();
  _errorReader.join();
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void ServerProcess::start(const Arguments& arguments, void (*prepare)()) {
  const Pipe output, error;
  _processId = fork();
  if (_processId == 0) {
    // A test that a sanitizer ends leaves nothing behind.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(output.ends[1], STDOUT_FILENO);
    dup2(error.ends[1], STDERR_FILENO);
    if (prepare != nullptr) prepare();
    becomeServer(arguments);
    _exit(cannotRun);
  }
  close(output.ends[1]);
  close(error.ends[1]);
  _outputReader = std::thread([this, end = output.ends[0]] { collect(end, &_standardOutput); });
  _errorReader = std::thread([this, end = error.ends[0]] { collect(end, &_standardError); });
  if (_processId < 0) {
    _outputReader.join();
    _errorReader.join();
    throw std::runtime_error("fork failed");
  }
}

void ServerProcess::collect(int descriptor, std::string* target) {
  char buffer[4096];
  ssize_t count;
  while ((count = read(descriptor, buffer, sizeof buffer)) > 0) {
    const std::lock_guard lock(_mutex);
    target->append(buffer, static_cast<std::size_t>(count));
    _more.notify_all();
  }
  close(descriptor);
  const std::lock_guard lock(_mutex);
  --_openOutputs;
  _more.notify_all();
}

RunResult runServer(const ServerProcess::Arguments& arguments,
                    const ServerProcess::Environment& environment) {
  const ChildResult result = runInChild(
      [&] {
        becomeServer(arguments);
        return cannotRun;
      },
      environment);
  return {result.exitStatus, result.standardOutput, result.standardError};
}

}  // namespace dch::testkit
