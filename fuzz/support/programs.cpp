#include "fuzz/support/programs.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <string_view>

#include "fuzz/support/require.h"

namespace fuzz {

namespace {

// Above every number that the system gives.
constexpr pid_t firstProcess = 1'000'000'000;
pid_t lastProcess = firstProcess;

// Every other program ends, at a fourth of the times that one is asked for: requests for its result
// come before and after. The others run until the server ends.
int timesAsked = 0;

bool hasEnded(pid_t process) {
  return process % 2 == 0 && ++timesAsked % 4 == 0;
}

int exitStatusOf(pid_t process) {
  return process % 128;
}

void requireStarted(pid_t process) {
  require(process > firstProcess && process <= lastProcess, "a process of the server's own");
}

}  // namespace

void forgetPrograms() {
  lastProcess = firstProcess;
  timesAsked = 0;
}

}  // namespace fuzz

using namespace fuzz;

extern "C" {

int __wrap_posix_spawn(pid_t* process, const char* path, const posix_spawn_file_actions_t*,
                       const posix_spawnattr_t*, char* const*, char* const*) {
  if (path == std::string_view(brokenProgram)) return ENOENT;
  *process = ++lastProcess;
  return 0;
}

pid_t __wrap_waitpid(pid_t process, int* status, int) {
  requireStarted(process);
  if (!hasEnded(process)) return 0;
  *status = W_EXITCODE(exitStatusOf(process), 0);
  return process;
}

// Ends the group of a process.
int __wrap_kill(pid_t group, int) {
  requireStarted(-group);
  return 0;
}

}  // extern "C"
