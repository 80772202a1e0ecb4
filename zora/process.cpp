#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "zora/trace_unit.h"
#include "zora/zora.h"

namespace {

constexpr std::size_t pathSize = 256;

// Replaces the process by `program`: from the current directory, else along PATH. Returns, with
// errno set, only when neither can be run.
void runProgram(const char* program) {
  char path[pathSize];
  const int length = std::snprintf(path, sizeof path, "./%s", program);
  // A name that does not fit is not cut: another program could have the shorter name.
  if (length < static_cast<int>(sizeof path)) execlp(path, program, static_cast<char*>(nullptr));
  execlp(program, program, static_cast<char*>(nullptr));
}

}  // namespace

int ZORA_StartDPprocess(const char* program) {
  TRC1_FUNCTION("ZORA_StartDPprocess");
  bool started = true;
  const pid_t child = fork();
  if (child < 0) {
    TRC1_ERROR("Error: fork failed: errno=%d\n", errno);
    started = false;
  } else if (child > 0) {
    TRC1_FLOW("Parent side with childPID is %d\n", child);
  } else {
    runProgram(program);
    TRC1_ERROR("Error: EXEC %s failed: errno=%d\n", program, errno);
    started = false;
  }
  if (started) TRC1_DETAIL("%s started successfully.\n", program);
  TRC1_RETURN(child);
}
