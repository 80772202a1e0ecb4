// process_state.h: whether a command has left a process behind.
#ifndef TOOLS_TESTKIT_PROCESS_STATE_H
#define TOOLS_TESTKIT_PROCESS_STATE_H

#include <chrono>
#include <string>

#include "tests/support/temporary_files.h"
#include "tests/support/wait_until.h"

namespace tools {

// Whether a process is there; one that has ended and waits for its parent is not.
inline bool isProcessRunning(const std::string& id) {
  const std::string about = contentOf("/proc/" + id + "/stat");
  const std::size_t name = about.rfind(')');
  return name != std::string::npos && about[name + 2] != 'Z' && about[name + 2] != 'X';
}

// Waits for its end, which may come a moment after that of those who wait for its output.
inline bool processEnds(const std::string& id) {
  return waitUntil([&] { return !isProcessRunning(id); }, std::chrono::seconds(60));
}

}  // namespace tools

#endif  // TOOLS_TESTKIT_PROCESS_STATE_H
